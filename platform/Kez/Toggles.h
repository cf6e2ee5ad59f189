// Feature toggles: which features of the switch are on. They stand in a file, by custom "Kez.json",
// one object of names with true or false:
//
//   { "KezEvpnVxlan4WayL2Ecmp": true }
#pragma once

#include "Vex/Attributes.h"

#include <map>

namespace Kez {

class FeatureToggles : public Vex::Entity {
  VEX_ENTITY( FeatureToggles, "Kez::FeatureToggles" )
  VEX_MAP( 1, toggle, Vex::String, bool ) // off for a name that is not there
  VEX_ATTRIBUTES( toggle )
};

// Of a text in strict JSON: one object, each name in it once, no value but true and false. Raises
// std::runtime_error, "line 2, column 7: expected true or false, found 'yes'".
std::map< Vex::String, bool > parseToggles( std::string_view text );

// Of a file. Raises std::runtime_error with its name when it cannot be read or does not parse: who
// sets none of the toggles then leaves every one off.
std::map< Vex::String, bool > readToggles( const Vex::String & file );

} // namespace Kez
