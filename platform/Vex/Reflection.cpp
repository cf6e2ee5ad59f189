#include "Vex/Reflection.h"

#include <algorithm>

namespace Vex {

void AttributeType::unsupported( const char * operation ) const {
  throw NotSupported( String( name ) + " (" + String( text( kind ) ) + ") cannot be " + operation );
}

EntityType::EntityType( std::string_view name, const EntityType * base,
                        std::initializer_list< const AttributeType * > own )
    : name( name ) {
  if ( base ) {
    attributes_ = base->attributes_;
  }
  attributes_.insert( attributes_.end(), own );
}

const AttributeType * EntityType::attribute( std::string_view name ) const {
  const auto at = std::find_if( attributes_.begin(), attributes_.end(),
                                [ & ]( const auto * each ) { return each->name == name; } );
  return at == attributes_.end() ? nullptr : *at;
}

const AttributeType * EntityType::attribute( AttrId id ) const {
  const auto at = std::find_if( attributes_.begin(), attributes_.end(),
                                [ & ]( const auto * each ) { return each->id == id; } );
  return at == attributes_.end() ? nullptr : *at;
}

} // namespace Vex
