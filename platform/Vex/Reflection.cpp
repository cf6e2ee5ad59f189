#include "Vex/Reflection.h"

#include "Vex/Entity.h"

#include <algorithm>

namespace Vex {

void AttributeType::unsupported( const char * operation ) const {
  throw NotSupported( String( name ) + " (" + String( text( kind ) ) + ") cannot be " + operation );
}

void AttributeType::forEach(
    const Entity & entity, const std::function< void( const ReflectedMember & ) > & visit ) const {
  const auto members = walk( entity );
  while ( const auto member = members->next() ) {
    visit( *member );
  }
}

Operations joined( Operations base, const Operations & own ) {
  base.insert( base.end(), own.begin(), own.end() );
  return base;
}

EntityType::EntityType( std::string_view name, const EntityType * base,
                        const Operations & operations,
                        std::initializer_list< const AttributeType * > own )
    : name( name ), operations_( operations ) {
  if ( base ) {
    attributes_ = base->attributes_;
  }
  attributes_.insert( attributes_.end(), own );
}

const OperationType * EntityType::operation( std::string_view name ) const {
  const auto at = std::find_if( operations_.begin(), operations_.end(),
                                [ & ]( const auto & each ) { return each->name == name; } );
  return at == operations_.end() ? nullptr : at->get();
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
