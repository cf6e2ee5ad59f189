// The entities that paths begin with, each by its name and with the role it plays. Outputs are
// read-only altogether; what else may be written, the attributes say.
#pragma once

#include "Vex/Entity.h"
#include "Vex/Value.h"

#include <algorithm>
#include <vector>

namespace Agent {

VEX_ENUM( Role, "Agent::Role", input, output, machine, hardware, runtime )

struct Root {
  Role role;
  Vex::Ptr< Vex::Entity > entity; // has a name
};

class Roots {
public:
  template< class T >
  Vex::Ptr< T > rootIs( Role role, const Vex::String & name, const Vex::Ptr< T > & entity ) {
    entity->nameIs( name );
    roots_.push_back( { role, entity } );
    return entity;
  }

  // Null when there is none of this name.
  const Root * root( std::string_view name ) const {
    const auto at = std::find_if( roots_.begin(), roots_.end(), [ & ]( const Root & each ) {
      return each.entity->name() == name;
    } );
    return at == roots_.end() ? nullptr : &*at;
  }

  Roots ofRole( Role role ) const {
    Roots some;
    for ( const auto & each : roots_ ) {
      if ( each.role == role ) {
        some.roots_.push_back( each );
      }
    }
    return some;
  }

  auto begin() const { return roots_.begin(); }
  auto end() const { return roots_.end(); }

private:
  std::vector< Root > roots_;
};

} // namespace Agent
