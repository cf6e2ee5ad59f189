// Keeps the lines of a session, and writes them to a file while it has one. A line is written
// before it is executed, so that one that ends the process stands in the record.
#pragma once

#include "Vex/Text.h"

#include <fstream>
#include <vector>

namespace Agent {

class Recorder {
public:
  // Writes the session's lines so far, and then each that comes. Raises std::runtime_error when
  // there is a file of this name, or none can be made.
  void fileIs( const Vex::String & name );
  void fileDel();

  // Raises std::runtime_error when the line cannot be written.
  void lineIs( std::string_view line );
  // Takes the latest line back.
  void lineDel();

private:
  void write( std::string_view line );

  std::vector< Vex::String > lines_;
  Vex::String name_;
  std::ofstream file_;
};

} // namespace Agent
