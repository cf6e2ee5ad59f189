// What kez-inspect does, called with its arguments. The exit status: 0; 1 when a file was damaged
// and the rest of it shown; 2 for an unknown command or option, or a file that cannot be read.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Inspect {

int kezInspect( const std::vector< std::string > & arguments, std::ostream & out,
                std::ostream & err );

} // namespace Inspect
