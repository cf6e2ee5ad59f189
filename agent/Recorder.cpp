#include "agent/Recorder.h"

#include <filesystem>

namespace Agent {

void Recorder::fileIs( const Vex::String & name ) {
  if ( std::filesystem::exists( name ) ) {
    throw std::runtime_error( "cannot record to " + name + ": there is such a file already" );
  }
  std::ofstream file( name, std::ios::app );
  if ( !file ) {
    throw std::runtime_error( "cannot record to " + name + ": it cannot be made" );
  }
  file_ = std::move( file );
  name_ = name;
  for ( const auto & line : lines_ ) {
    write( line );
  }
}

void Recorder::fileDel() {
  file_.close();
}

void Recorder::lineIs( std::string_view line ) {
  lines_.emplace_back( line );
  if ( file_.is_open() ) {
    write( line );
  }
}

void Recorder::lineDel() {
  if ( file_.is_open() ) {
    std::filesystem::resize_file( name_,
                                  std::filesystem::file_size( name_ ) - lines_.back().size() - 1 );
  }
  lines_.pop_back();
}

void Recorder::write( std::string_view line ) {
  if ( !( file_ << line << '\n' ).flush() ) {
    throw std::runtime_error( "cannot write " + name_ );
  }
}

} // namespace Agent
