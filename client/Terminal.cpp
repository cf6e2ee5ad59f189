#include "client/Terminal.h"

#include <sys/ioctl.h>

namespace Agent {

using Vex::String;

namespace {

size_t widthOf( int terminal ) {
  winsize size{};
  return ioctl( terminal, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

// 0 where there is but one.
size_t lastColumn( std::string_view line ) {
  const auto gap = line.rfind( "  ", line.find_last_not_of( ' ' ) );
  return gap == std::string_view::npos || gap < line.find_first_not_of( ' ' ) ? 0 : gap + 2;
}

} // namespace

String wrapped( std::string_view line, size_t width ) {
  if ( width == 0 || line.size() <= width || line.starts_with( '{' ) ) {
    return String( line );
  }
  const size_t column = lastColumn( line );
  const size_t indent = column > 0 && column <= width / 2 ? column : 4;
  String all;
  size_t room = width;
  while ( line.size() > room ) {
    const auto gap = line.rfind( ' ', room );
    // Not within the blanks that it begins with.
    const auto word = line.find_first_not_of( ' ' );
    const auto cut = gap == std::string_view::npos || gap < word ? line.find( ' ', word ) : gap;
    if ( cut == std::string_view::npos ) {
      break;
    }
    all.append( line.substr( 0, line.find_last_not_of( ' ', cut ) + 1 ) ).append( "\n" );
    all.append( indent, ' ' );
    line = line.substr( std::min( line.find_first_not_of( ' ', cut ), line.size() ) );
    room = width > indent ? width - indent : 1;
  }
  return all.append( line );
}

TerminalStream::TerminalStream( std::ostream & out, int terminal )
    : std::ostream( nullptr ), buffer_( out, terminal ) {
  rdbuf( &buffer_ );
}

TerminalStream::Buffer::int_type TerminalStream::Buffer::overflow( int_type character ) {
  if ( character == '\n' ) {
    out_ << wrapped( line_, widthOf( terminal_ ) ) << '\n';
    line_.clear();
  } else if ( character != traits_type::eof() ) {
    line_ += static_cast< char >( character );
  }
  return out_ ? traits_type::not_eof( character ) : traits_type::eof();
}

int TerminalStream::Buffer::sync() {
  out_ << line_;
  line_.clear();
  return out_.flush() ? 0 : -1;
}

} // namespace Agent
