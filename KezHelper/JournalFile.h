// A table of what hardware has that outlives the process: a Rook::Table of any keys and data, in a
// file below the mount directory, or in private memory without one. The next process takes it over
// as the last write left it.
//
// A driver whose chip is another thing than its journal writes it by JournalTable.
#pragma once

#include "KezHelper/HwTable.h"
#include "KezHelper/JournalWords.h"

#include <new>

namespace KezHelper {

namespace Detail {

template< class Key, class Data > struct JournalRecord {
  JournalWordsOf< Key > key;
  [[no_unique_address]] JournalWordsOf< Data > data;

  static std::string_view vexTypeName() {
    static const auto name = [] {
      Vex::TextBuffer out;
      appendPacked< Key >( out );
      if constexpr ( !std::is_empty_v< Data > ) {
        out.append( " to " );
        appendPacked< Data >( out );
      }
      return out.str();
    }();
    return name;
  }
  static constexpr auto vexFields() {
    if constexpr ( std::is_empty_v< Data > ) {
      return std::tuple( Vex::field( "key", &JournalRecord::key ) );
    } else {
      return std::tuple( Vex::field( "key", &JournalRecord::key ),
                         Vex::field( "data", &JournalRecord::data ) );
    }
  }
};

} // namespace Detail

template< class Key, class Data > class JournalFile final : public HwTable< Key, Data > {
  using Base = HwTable< Key, Data >;

public:
  using Entry = typename Base::Entry;

  // Mounts the table `name` of the journal that the names are of, which outlive this. Raises
  // std::runtime_error, which says the file and what is wrong with it: what Rook::Table's mount
  // does, and for an entry of an interface that has no name.
  JournalFile( JournalNames & names, const Vex::String & name ) : names_( names ) {
    table_.mount( names.journal() + "/" + name );
    for ( const auto & record : table_.range() ) {
      entry( record );
    }
  }

  std::optional< Data > find( const Key & key ) const override {
    const auto record = table_.record( wordsToFind( key ) );
    return record ? std::optional( fromJournalWords< Data >( record->data, names_ ) )
                  : std::nullopt;
  }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }
  size_t size() const { return table_.size(); }

  // Inserts or replaces. When there is no room it returns false, `lack` says why, and nothing has
  // changed. What stands can be replaced without room, unless its data name an interface or have a
  // longer list than there is room for.
  [[nodiscard]] bool put( const Key & key, const Data & data ) {
    const auto numberOf = [ this ]( Wire::IntfId intfId ) { return names_.numberIs( intfId ); };
    lack_.clear();
    try {
      table_.put( { journalWordsOf( key, numberOf ), journalWordsOf( data, numberOf ) } );
      return true;
    } catch ( const std::runtime_error & error ) {
      lack_ = error.what();
    } catch ( const std::bad_alloc & ) {
      lack_ = "no memory";
    }
    return false;
  }
  // Makes room for one more entry of interfaces that are named. False when there is none, and
  // `lack` says why.
  [[nodiscard]] bool makeRoom() {
    const bool made = table_.makeRoom();
    lack_ = table_.lack();
    return made;
  }
  const Vex::String & lack() const { return lack_; }

  void del( const Key & key ) { table_.del( wordsToFind( key ) ); }
  void delAll() { table_.delAll(); }

private:
  using Record = Detail::JournalRecord< Key, Data >;
  using Table = Rook::Table< &Record::key >;

  class Walk final : public Base::Walk {
  public:
    explicit Walk( const JournalFile & file )
        : file_( file ), walk_( file.table_.range().begin() ) {}

    std::optional< Entry > next() override {
      if ( !walk_.valid() ) {
        return std::nullopt;
      }
      auto entry = file_.entry( *walk_ );
      ++walk_;
      return entry;
    }

  private:
    const JournalFile & file_;
    decltype( std::declval< const Table & >().range().begin() ) walk_;
  };

  Entry entry( const Record & record ) const {
    try {
      return { fromJournalWords< Key >( record.key, names_ ),
               fromJournalWords< Data >( record.data, names_ ) };
    } catch ( const std::runtime_error & error ) {
      throw std::runtime_error( table_.file().path() + ": " + error.what() );
    }
  }
  // An interface that has no number is in no entry.
  JournalWordsOf< Key > wordsToFind( const Key & key ) const {
    return journalWordsOf( key,
                           [ this ]( Wire::IntfId intfId ) { return names_.number( intfId ); } );
  }

  JournalNames & names_;
  Table table_;
  Vex::String lack_;
};

} // namespace KezHelper
