// What becomes of damage that is met in a table: its corruption handler is told, on the thread that
// met it. A walk that it was met by then goes on, a look-up leaves it to its caller to tell the
// handler, and a writer that met it in a write or a removal ends.
#pragma once

#include "Rook/TableFile.h"

#include <functional>

namespace Rook {

// What becomes of damage that a table's reader or writer meets.
class CorruptionHandling {
public:
  using CorruptionHandler = std::function< void( const Corruption & ) >;

  // The handler at first writes a line to standard error. What one raises leaves the walk or the
  // look-up by which it was called, and ends a writer no less.
  void corruptionHandlerIs( CorruptionHandler handler ) { handler_ = std::move( handler ); }
  void handleCorruption( const Corruption & corruption ) const { handler_( corruption ); }

protected:
  CorruptionHandling();
  ~CorruptionHandling() = default;

private:
  CorruptionHandler handler_;
};

} // namespace Rook
