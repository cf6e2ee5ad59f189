#include "record/RecordFile.h"

#include "Vex/OwnFile.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace Agent {

static Vex::Descriptor newFile( const Vex::String & name ) {
  auto file = Vex::makeFile( name );
  if ( file.number() < 0 ) {
    throw std::runtime_error( "cannot record to " + name + ": there is such a file already" );
  }
  return file;
}

RecordFile::RecordFile( const Vex::String & name ) : name_( name ), file_( newFile( name ) ) {}

RecordFile::~RecordFile() {
  next_ = {};
  // What cannot be cut is blank lines.
  [[maybe_unused]] const int result = ftruncate( file_.number(), static_cast< off_t >( size() ) );
}

void RecordFile::Unmap::operator()( char * window ) const {
  munmap( window, windowSize );
}

void RecordFile::fail( std::string_view what ) const {
  throw std::runtime_error( "cannot " + Vex::String( what ) + " " + name_ + ": " +
                            std::strerror( errno ) );
}

Vex::String RecordFile::text() const {
  Vex::String text( size(), '\n' );
  for ( size_t at = 0; at < text.size(); ) {
    const auto got =
        pread( file_.number(), text.data() + at, text.size() - at, static_cast< off_t >( at ) );
    if ( got <= 0 ) {
      fail( "read" );
    }
    at += static_cast< size_t >( got );
  }
  return text;
}

RecordFile::Window RecordFile::windowAt( size_t begin ) {
  static const Vex::String lineEnds( windowSize, '\n' );
  while ( filled_ < begin + windowSize ) {
    const auto written = pwrite( file_.number(), lineEnds.data(), begin + windowSize - filled_,
                                 static_cast< off_t >( filled_ ) );
    if ( written <= 0 ) {
      fail( "write" );
    }
    filled_ += static_cast< size_t >( written );
  }
  void * const mapped = mmap( nullptr, windowSize, PROT_READ | PROT_WRITE, MAP_SHARED,
                              file_.number(), static_cast< off_t >( begin ) );
  if ( mapped == MAP_FAILED ) {
    fail( "write" );
  }
  // Where the kernel knows no such advice, the first writing to a page is slower.
  madvise( mapped, windowSize, MADV_POPULATE_WRITE );
  return Window( static_cast< char * >( mapped ) );
}

void RecordFile::windowIs( size_t begin, Window window ) {
  window_ = std::move( window );
  begin_ = begin;
  used_ = 0;
  next_ = std::async( [ this, next = begin + windowSize ] { return windowAt( next ); } );
}

void RecordFile::append( std::string_view text ) {
  while ( !text.empty() ) {
    if ( !window_ ) {
      windowIs( 0, windowAt( 0 ) );
    } else if ( used_ == windowSize ) {
      const size_t begin = begin_ + windowSize;
      windowIs( begin, next_.valid() ? next_.get() : windowAt( begin ) );
    }
    const size_t fits = text.copy( window_.get() + used_, windowSize - used_ );
    used_ += fits;
    text.remove_prefix( fits );
  }
}

void RecordFile::cut( size_t size ) {
  while ( size < begin_ ) {
    std::memset( window_.get(), '\n', used_ );
    next_ = {};
    windowIs( begin_ - windowSize, windowAt( begin_ - windowSize ) );
    used_ = windowSize;
  }
  std::memset( window_.get() + ( size - begin_ ), '\n', used_ - ( size - begin_ ) );
  used_ = size - begin_;
}

} // namespace Agent
