// Addresses of this process that show parts of a file, one after the other, given back at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Rook {

class Mapping {
public:
  // Of a file, in whole pages.
  struct Part {
    uint64_t offset;
    size_t size;
  };

  Mapping() = default;
  // `protection` is mmap's. Raises std::system_error, and takes no addresses then.
  Mapping( int file, int protection, std::span< const Part > parts );
  ~Mapping();
  Mapping( Mapping && other ) noexcept;
  Mapping & operator=( Mapping && other ) noexcept;

  std::byte * memory() const { return memory_; }

private:
  std::byte * memory_ = nullptr;
  size_t size_ = 0;
};

} // namespace Rook
