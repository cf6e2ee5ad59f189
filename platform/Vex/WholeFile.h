// A file that others see whole or not at all. It is written beside its place, under a name of its
// own, and put there when all of it has been written; until then what stood there stands. What
// stands there and is no file, a link too, or is another user's, is left alone.
#pragma once

#include "Vex/Descriptor.h"

namespace Vex {

// All raise std::runtime_error, and what stands in the place is as before.
class WholeFile {
public:
  explicit WholeFile( const String & path );
  // Gone, unless it was put in its place.
  ~WholeFile();
  WholeFile( const WholeFile & ) = delete;
  WholeFile & operator=( const WholeFile & ) = delete;

  void write( std::string_view text );
  // Puts it in its place.
  void commit();

private:
  [[noreturn]] void fail() const;

  const String path_;
  String temporary_; // empty once it is in its place
  Descriptor file_;
};

} // namespace Vex
