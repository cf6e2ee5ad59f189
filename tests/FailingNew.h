// Lets memory run out, for all of the process.
#pragma once

#include <cstddef>

// While it stands, `new` gives out so many more pieces of memory and then none.
class FailingNew {
public:
  explicit FailingNew( size_t left );
  ~FailingNew();
  FailingNew( const FailingNew & ) = delete;
  FailingNew & operator=( const FailingNew & ) = delete;
};
