// Lines typed at a terminal: with editing, a history that is kept in the user's directory, and
// completion.
#pragma once

#include "Vex/Text.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Agent {

class LineEditor {
public:
  // How what was typed may go on: what is to be added, and what to show when there are several.
  struct Candidate {
    Vex::String missing;
    Vex::String shown;
  };
  using Complete = std::function< std::vector< Candidate >( std::string_view typed ) >;
  // Does what there is to do while nothing is typed. The milliseconds after which it is to be
  // called again; -1 when that is not before the next line.
  using Idle = std::function< int() >;

  LineEditor(
      const Vex::String & prompt, Complete complete, Idle idle = [] { return -1; } );
  ~LineEditor();
  LineEditor( const LineEditor & ) = delete;
  LineEditor & operator=( const LineEditor & ) = delete;

  // As a shell's `complete` answers it.
  static Candidate candidate( std::string_view line );

  // The next line, without its end; none at the end of input. Empty when a signal came.
  std::optional< Vex::String > nextLine();

private:
  class Library;
  const std::unique_ptr< Library > library_;
};

} // namespace Agent
