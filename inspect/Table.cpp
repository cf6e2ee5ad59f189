#include "inspect/Table.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace Inspect {

TableView::TableView( const std::string & file, const std::optional< std::string > & key, bool json,
                      std::ostream & out, std::ostream & err )
    : table_( Rook::TableFile::read( file, nullptr ) ), text_( table_.description().fields ),
      key_( key ), isJson_( json ), out_( out ), err_( err ),
      record_( Rook::Format::wordsOf( table_.description().recordSize ) ) {}

bool TableView::show() {
  forEachSlot( "" );
  bool any = !key_;
  for ( const auto & shown : shown_ ) {
    any |= shown.key.has_value();
  }
  if ( !any ) {
    err_ << table_.path() << ": no record has the key " << *key_ << std::endl;
  }
  return whole_ && any;
}

void TableView::follow() {
  uint64_t changes = 0;
  while ( !table_.isReplaced() ) {
    const uint64_t now = table_.state().changes.load( std::memory_order_acquire );
    if ( std::exchange( changes, now ) != now ) {
      forEachSlot( "set" );
    }
    if ( !out_ ) {
      throw std::runtime_error( "cannot write" );
    }
    std::this_thread::sleep_for( std::chrono::milliseconds( 100 ) );
  }
  err_ << table_.path() << " has gone, or is another file now" << std::endl;
}

void TableView::forEachSlot( std::string_view verb ) {
  const auto moment = table_.moment();
  shown_.resize( moment.slots );
  for ( uint32_t slot = 0; slot < moment.slots; ++slot ) {
    update( slot, moment.latestBirth, verb );
  }
  out_.flush();
}

void TableView::update( uint32_t slot, uint64_t latestBirth, std::string_view verb ) {
  const auto state = table_.readSlot( slot, record_.size(), record_.data() );
  auto & shown = shown_[ slot ];
  // What is not committed yet is looked at again.
  if ( state.version == shown.version || ( state.present && state.birth > latestBirth ) ) {
    return;
  }
  shown.version = state.version;
  if ( state.damaged ) {
    err_ << table_.damageOfSlot( slot ).what() << std::endl;
    whole_ = false;
    return;
  }
  const auto * const record = reinterpret_cast< const std::byte * >( record_.data() );
  std::optional< std::string > key;
  if ( state.present ) {
    Vex::TextBuffer text;
    text_.appendKey( text, record );
    if ( !key_ || text.view() == *key_ ) {
      key = text.str();
    }
  }
  if ( shown.key && shown.key != key ) {
    sayRemoval( *shown.key );
  }
  if ( key ) {
    sayRecord( verb, *key, record );
  }
  shown.key = key;
}

void TableView::sayRecord( std::string_view verb, const std::string & key,
                           const std::byte * record ) {
  if ( isJson_ ) {
    json_.line( [ & ] {
      if ( !verb.empty() ) {
        json_.member( "change", verb );
      }
      json_.member( "key", key, text_.keyForm() );
      json_.name( "record" );
      text_.put( json_, record );
    } );
    return;
  }
  Vex::TextBuffer text;
  text_.append( text, record );
  out_ << verb << ( verb.empty() ? "" : " " ) << text.view() << '\n';
}

void TableView::sayRemoval( const std::string & key ) {
  if ( isJson_ ) {
    json_.line( [ & ] {
      json_.member( "change", "del" );
      json_.member( "key", key, text_.keyForm() );
    } );
  } else {
    out_ << "del " << key << '\n';
  }
}

} // namespace Inspect
