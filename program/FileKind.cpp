#include "program/FileKind.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace Program {

using Vex::String;

namespace {

struct Known {
  FileKind kind;
  std::string_view begins; // as its format says
  const char * isRead;
};

constexpr Known knownKinds[] = {
  { FileKind::record, "#= record ", "a record, which kez-agent replay plays" },
  { FileKind::ring, "KEZRING", "a ring, which kez-inspect ring shows" },
  { FileKind::table, "ROOKTBL", "a shared table, which kez-inspect table shows" },
};

} // namespace

void expectKind( const String & path, std::initializer_list< FileKind > kinds ) {
  std::ifstream file( path, std::ios::binary );
  char bytes[ 16 ];
  file.read( bytes, sizeof( bytes ) );
  const std::string_view begin( bytes, static_cast< size_t >( file.gcount() ) );
  const auto * const known =
      std::find_if( std::begin( knownKinds ), std::end( knownKinds ),
                    [ & ]( const Known & each ) { return begin.starts_with( each.begins ); } );
  if ( known != std::end( knownKinds ) &&
       std::find( kinds.begin(), kinds.end(), known->kind ) == kinds.end() ) {
    throw std::runtime_error( path + " is " + known->isRead );
  }
}

} // namespace Program
