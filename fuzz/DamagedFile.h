// A good file with damage that the input describes: its first two bytes say where the file ends,
// if they are not 0, and then every five set one byte, by its place and its value.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace Fuzz {

inline std::string temporaryPath( const std::string & name ) {
  return "/dev/shm/kez-fuzz-" + std::to_string( getpid() ) + "-" + name;
}

inline std::string contentOf( const std::string & path ) {
  std::ostringstream content;
  content << std::ifstream( path, std::ios::binary ).rdbuf();
  return content.str();
}

inline void writeDamaged( const std::string & path, std::string content, const uint8_t * data,
                          size_t size ) {
  if ( size >= 2 ) {
    const size_t end = data[ 0 ] + 256u * data[ 1 ];
    if ( end != 0 ) {
      content.resize( end % content.size() );
    }
  }
  for ( size_t i = 2; i + 5 <= size && !content.empty(); i += 5 ) {
    uint32_t at = 0;
    std::memcpy( &at, data + i, sizeof( at ) );
    content[ at % content.size() ] = static_cast< char >( data[ i + 4 ] );
  }
  std::ofstream( path, std::ios::binary | std::ios::trunc ) << content;
}

} // namespace Fuzz
