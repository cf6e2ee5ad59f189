// Whatever an attribute of the agent takes as a key or a value reads any text without harm, and
// what it takes it prints and takes again. The first byte chooses among the types.
#include "agent/Wiring.h"

#include <cstdlib>
#include <map>
#include <set>

namespace {

using Canonical = std::function< Vex::String( std::string_view ) >;

// By the type's name, all that the classes of the agent's entities have.
class Types {
public:
  Types() {
    for ( const auto & root : wiring_.roots ) {
      add( root.entity->fwkType() );
    }
  }

  const Canonical & operator[]( size_t number ) const {
    return std::next( types_.begin(), static_cast< ptrdiff_t >( number % types_.size() ) )->second;
  }

private:
  void add( const Vex::EntityType & type ) {
    if ( !seen_.insert( &type ).second ) {
      return;
    }
    for ( const auto * attribute : type.attributes() ) {
      if ( attribute->keyed() ) {
        types_[ attribute->keyType ] = [ attribute ]( auto text ) {
          return attribute->canonicalKey( text );
        };
      }
      if ( const auto * const inner = attribute->entityType() ) {
        add( *inner );
      } else if ( !attribute->valueType.empty() ) {
        types_[ attribute->valueType ] = [ attribute ]( auto text ) {
          return attribute->canonicalValue( text );
        };
      }
    }
  }

  const Agent::Wiring wiring_ = Agent::wire();
  std::set< const Vex::EntityType * > seen_;
  std::map< std::string_view, Canonical > types_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  static const Types types;
  if ( size > 0 ) {
    const auto & canonical = types[ data[ 0 ] ];
    try {
      const auto printed = canonical( { reinterpret_cast< const char * >( data ) + 1, size - 1 } );
      if ( canonical( printed ) != printed ) {
        std::abort();
      }
    } catch ( const Vex::ParseError & ) {
    } catch ( const Vex::RangeError & ) {}
  }
  return 0;
}
