#include "shell/KnownNames.h"

#include <set>

namespace KezShell {

using Vex::String;

namespace {

constexpr size_t mostMembers = 100'000;

// Whether an entity of the class has keys of the type, or a member of one of its collections has,
// so many collections deep.
bool holdsKeys( const Vex::EntityType & entityType, std::string_view type, size_t depth = 4 ) {
  return std::ranges::any_of( entityType.attributes(), [ & ]( const auto * attribute ) {
    return attribute->isCollection() &&
           ( attribute->keyType == type ||
             ( depth > 0 && attribute->entityType() &&
               holdsKeys( *attribute->entityType(), type, depth - 1 ) ) );
  } );
}

// Runs `visit( entity, attribute )` for each collection with such keys at or below an entity, until
// it returns true; whether it did.
template< class Visit >
bool forEachCollection( const Vex::Entity & entity, std::string_view type, size_t & members,
                        const Visit & visit ) {
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    if ( !attribute->isCollection() ) {
      continue;
    }
    if ( attribute->keyType == type && visit( entity, *attribute ) ) {
      return true;
    }
    if ( !attribute->entityType() || !holdsKeys( *attribute->entityType(), type ) ) {
      continue;
    }
    const auto walk = attribute->walk( entity );
    while ( const auto member = members < mostMembers ? walk->next() : std::nullopt ) {
      ++members;
      if ( forEachCollection( *member->entity, type, members, visit ) ) {
        return true;
      }
    }
  }
  return false;
}

} // namespace

bool isKnown( const Roots & roots, Role role, std::string_view type, const String & key ) {
  size_t members = 0;
  const auto hasKey = [ & ]( const Vex::Entity & entity, const Vex::AttributeType & attribute ) {
    try {
      return attribute.member( entity, key ).has_value();
    } catch ( const std::runtime_error & ) {
      return true;
    }
  };
  return std::any_of( roots.begin(), roots.end(), [ & ]( const Root & root ) {
    return root.role == role && forEachCollection( *root.entity, type, members, hasKey );
  } );
}

std::vector< String > knownNames( const Roots & roots, Role role, std::string_view type ) {
  std::set< String > names;
  size_t members = 0;
  const auto collect = [ & ]( const Vex::Entity & entity, const Vex::AttributeType & attribute ) {
    const auto walk = attribute.walk( entity );
    while ( const auto member = members < mostMembers ? walk->next() : std::nullopt ) {
      ++members;
      names.insert( member->key );
    }
    return false;
  };
  for ( const auto & root : roots ) {
    if ( root.role == role ) {
      try {
        forEachCollection( *root.entity, type, members, collect );
      } catch ( const std::runtime_error & ) {
        // A damaged table: what it holds besides is not offered.
        continue;
      }
    }
  }
  return { names.begin(), names.end() };
}

} // namespace KezShell
