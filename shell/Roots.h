// The entities that paths begin with, each by its name and with the role it plays. Outputs are
// read-only altogether, and so is what its host says; what else may be written, the attributes say.
#pragma once

#include "Vex/Entity.h"
#include "Vex/Value.h"

#include <algorithm>
#include <vector>

namespace KezShell {

VEX_ENUM( Role, "KezShell::Role", input, output, machine, hardware, runtime )

// An entity that paths begin with.
struct Root {
  Role role;
  Vex::Ptr< Vex::Entity > entity; // has a name
  Vex::Access access;
};

class Roots {
public:
  template< class T >
  Vex::Ptr< T > rootIs( Role role, const Vex::String & name, const Vex::Ptr< T > & entity,
                        Vex::Access access = Vex::Access::writable ) {
    entity->nameIs( name );
    roots_.push_back( { role, entity, role == Role::output ? Vex::Access::readOnly : access } );
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

} // namespace KezShell
