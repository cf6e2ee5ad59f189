// The interface ids that the tables of a journal name, each once, by numbers that mean the same in
// the next process: an id's own may be that of a name which is interned here. An interface that has
// a number keeps it.
#pragma once

#include "Rook/Table.h"
#include "Wire/IntfId.h"

namespace KezHelper {

namespace Detail {

// Before the first word; no other member has its type, and so none need stand beside it.
struct NoWord {
  friend bool operator==( NoWord, NoWord ) = default;
};

} // namespace Detail

// So many words of 32 bits, as the fields of a record.
template< size_t count > struct JournalWords;
template< size_t count >
using WordsBefore = std::conditional_t< count == 1, Detail::NoWord, JournalWords< count - 1 > >;
template< size_t count > struct JournalWords : WordsBefore< count > {
  uint32_t word = 0; // the last

  static constexpr std::string_view vexTypeName() { return "KezHelper::JournalWords"; }
  static constexpr auto vexFields() {
    return []< size_t... at >( std::index_sequence< at... > ) {
      return std::tuple( Vex::field(
          std::string_view( name< at >.data(), name< at >.size() ),
          static_cast< uint32_t JournalWords::* >( &JournalWords< at + 1 >::word ) )... );
    }
    ( std::make_index_sequence< count >() );
  }
  friend bool operator==( const JournalWords &, const JournalWords & ) = default;

private:
  template< size_t at >
  static constexpr std::array< char, 3 > name{ 'w', '0' + at / 10, '0' + at % 10 };
};
template<> struct JournalWords< 0 > {};

namespace Detail {

struct JournalName {
  uint32_t number = 0;
  JournalWords< 16 > text; // ends with a 0
  static constexpr std::string_view vexTypeName() { return "KezHelper::JournalName"; }
  static constexpr auto vexFields() {
    return std::tuple( Vex::field( "number", &JournalName::number ),
                       Vex::field( "text", &JournalName::text ) );
  }
};

} // namespace Detail

class JournalNames {
public:
  // Mounts the table `journal`/intfId. Raises what Rook::Table's mount does.
  explicit JournalNames( const Vex::String & journal );

  const Vex::String & journal() const { return journal_; }

  // Gives it a number unless it has one. Raises what Rook::Table's put does, and std::bad_alloc.
  uint32_t numberIs( Wire::IntfId intfId );
  // `noNumber` unless it has one.
  uint32_t number( Wire::IntfId intfId ) const;
  static constexpr uint32_t noNumber = UINT32_MAX;
  // Raises std::runtime_error for what is no number of an interface.
  Wire::IntfId intfId( uint32_t number ) const;

private:
  using Name = Detail::JournalName;

  [[noreturn]] void hasNoName( uint32_t number ) const;

  const Vex::String journal_;
  Rook::Table< &Name::number > table_;
  std::vector< Wire::IntfId > intfIds_; // by number
  Vex::Collection< Wire::IntfId, uint32_t > numbers_;
};

} // namespace KezHelper
