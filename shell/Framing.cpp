#include "shell/Framing.h"

namespace KezShell {

void FramedStream::append( std::string_view text ) {
  const bool isError = kind_ == Kind::error;
  if ( isError != to_.inError ) {
    to_.endLine();
    to_.inError = isError;
  }
  while ( !text.empty() ) {
    const auto line = text.substr( 0, text.find( '\n' ) );
    const bool ends = line.size() < text.size();
    if ( to_.atLineStart && isError ) {
      to_.text += errorMark;
    } else if ( to_.atLineStart && !line.empty() && ( line[ 0 ] == '.' || line[ 0 ] == '!' ) ) {
      to_.text += line[ 0 ];
    }
    to_.text += line;
    to_.atLineStart = ends;
    if ( ends ) {
      to_.text += '\n';
    }
    text.remove_prefix( line.size() + ends );
  }
}

} // namespace KezShell
