#include "agent/RecordFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Agent {

RecordFile::RecordFile( const Vex::String & name )
    : name_( name ), file_( open( name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666 ) ) {
  if ( file_ < 0 ) {
    throw std::runtime_error( "cannot record to " + name + ": " +
                              ( errno == EEXIST ? "there is such a file already"
                                                : Vex::String( std::strerror( errno ) ) ) );
  }
}

RecordFile::~RecordFile() {
  unmap();
  // What cannot be cut is blank lines.
  [[maybe_unused]] const int result = ftruncate( file_, static_cast< off_t >( size() ) );
  close( file_ );
}

void RecordFile::unmap() {
  if ( window_ ) {
    munmap( window_, windowSize );
    window_ = nullptr;
  }
}

void RecordFile::windowIs( size_t begin ) {
  const auto fail = [ & ] {
    throw std::runtime_error( "cannot write " + name_ + ": " + std::strerror( errno ) );
  };
  static const Vex::String lineEnds( windowSize, '\n' );
  while ( filled_ < begin + windowSize ) {
    const auto written = pwrite( file_, lineEnds.data(), begin + windowSize - filled_,
                                 static_cast< off_t >( filled_ ) );
    if ( written <= 0 ) {
      fail();
    }
    filled_ += static_cast< size_t >( written );
  }
  void * const mapped = mmap( nullptr, windowSize, PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_POPULATE, file_, static_cast< off_t >( begin ) );
  if ( mapped == MAP_FAILED ) {
    fail();
  }
  unmap();
  window_ = static_cast< char * >( mapped );
  begin_ = begin;
  used_ = 0;
}

void RecordFile::append( std::string_view text ) {
  while ( !text.empty() ) {
    if ( !window_ || used_ == windowSize ) {
      windowIs( begin_ + used_ );
    }
    const size_t fits = text.copy( window_ + used_, windowSize - used_ );
    used_ += fits;
    text.remove_prefix( fits );
  }
}

void RecordFile::cut( size_t size ) {
  while ( size < begin_ ) {
    std::memset( window_, '\n', used_ );
    windowIs( begin_ - windowSize );
    used_ = windowSize;
  }
  std::memset( window_ + ( size - begin_ ), '\n', used_ - ( size - begin_ ) );
  used_ = size - begin_;
}

} // namespace Agent
