#include "KezHelper/JournalNames.h"

#include <cstring>

namespace KezHelper {

JournalNames::JournalNames( const Vex::String & journal ) : journal_( journal ) {
  table_.mount( journal + "/intfId" );
  intfIds_.resize( table_.size() );
  for ( const auto & name : table_.range() ) {
    if ( name.number >= intfIds_.size() ) {
      hasNoName( static_cast< uint32_t >( intfIds_.size() ) );
    }
    const auto * const text = reinterpret_cast< const char * >( &name.text );
    const Wire::IntfId intfId( std::string_view( text, strnlen( text, sizeof( name.text ) ) ) );
    intfIds_[ name.number ] = intfId;
    numbers_.findOrAdd( intfId, [ & ] { return name.number; } );
  }
}

uint32_t JournalNames::numberIs( Wire::IntfId intfId ) {
  if ( const auto * const number = numbers_.find( intfId ) ) [[likely]] {
    return *number;
  }
  Name name;
  name.number = static_cast< uint32_t >( intfIds_.size() );
  const auto text = Vex::text( intfId );
  VEX_ASSERT( text.size() < sizeof( name.text ) );
  std::memcpy( static_cast< void * >( &name.text ), text.data(), text.size() );
  intfIds_.push_back( intfId );
  try {
    numbers_.findOrAdd( intfId, [ & ] { return name.number; } );
    table_.put( name );
  } catch ( ... ) {
    numbers_.erase( intfId );
    intfIds_.pop_back();
    throw;
  }
  return name.number;
}

uint32_t JournalNames::number( Wire::IntfId intfId ) const {
  const auto * const number = numbers_.find( intfId );
  return number ? *number : noNumber;
}

Wire::IntfId JournalNames::intfId( uint32_t number ) const {
  if ( number >= intfIds_.size() ) {
    hasNoName( number );
  }
  return intfIds_[ number ];
}

void JournalNames::hasNoName( uint32_t number ) const {
  throw std::runtime_error( table_.file().path() + ": interface " + std::to_string( number ) +
                            " has no name" );
}

} // namespace KezHelper
