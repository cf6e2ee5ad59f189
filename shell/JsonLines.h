// A stream of words where JSON is wanted: each line of them makes a value, {"text":...}.
#pragma once

#include "Vex/Json.h"

#include <streambuf>

namespace KezShell {

class JsonLines : public std::streambuf {
public:
  explicit JsonLines( Vex::JsonWriter & json ) : json_( json ) {}

  // If one has begun.
  void endLine() {
    if ( !line_.empty() ) {
      sayLine();
    }
  }

private:
  int overflow( int c ) override {
    const char one = traits_type::to_char_type( c );
    if ( one == '\n' ) {
      sayLine();
    } else {
      line_ += one;
    }
    return c;
  }
  void sayLine() {
    json_.line( [ & ] { json_.member( "text", line_ ); } );
    line_.clear();
  }

  Vex::JsonWriter & json_;
  Vex::String line_;
};

} // namespace KezShell
