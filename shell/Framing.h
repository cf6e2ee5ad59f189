// How a door's answers read. Each line that a peer sends is answered by lines, and then by one that
// tells how it went:
//
//   . ok        it was executed
//   . failed    something that it expected is not so
//   . bad       it was not executed
//
// A line that begins with "! " tells what was bad or failed. An answer's own line that begins with
// "." or "!" has that sign twice. A door's first line, before any answer, is ". ready", or
// ". read-only".
#pragma once

#include "Vex/Text.h"

#include <streambuf>

namespace KezShell {

constexpr std::string_view statusMark = ". ";
constexpr std::string_view errorMark = "! ";

// What is to be sent, in which answers and errors alternate.
struct FramedText {
  Vex::String text;
  bool atLineStart = true;
  bool inError = false; // the line that is not at its start

  void endLine() {
    if ( !atLineStart ) {
      text += '\n';
      atLineStart = true;
    }
  }
  void statusIs( std::string_view status ) {
    endLine();
    text += statusMark;
    text += status;
    text += '\n';
  }
};

// A stream into such a text: of answers, or of errors.
class FramedStream : public std::streambuf {
public:
  enum class Kind { answer, error };
  FramedStream( FramedText & to, Kind kind ) : to_( to ), kind_( kind ) {}

private:
  int overflow( int c ) override {
    const char one = traits_type::to_char_type( c );
    append( { &one, 1 } );
    return c;
  }
  std::streamsize xsputn( const char * text, std::streamsize size ) override {
    append( { text, static_cast< size_t >( size ) } );
    return size;
  }
  void append( std::string_view text );

  FramedText & to_;
  const Kind kind_;
};

} // namespace KezShell
