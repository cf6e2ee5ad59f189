// A damaged table is refused or read with a message, never with harm, by the inspector and by a
// reader.
#include "DamagedFile.h"
#include "KezEvpn/KezEvpn.h"
#include "Rook/Reader.h"
#include "Rook/Table.h"
#include "inspect/Inspect.h"

namespace {

using Kez::TunnelIdToHwTunnelId;
constexpr auto key = &TunnelIdToHwTunnelId::key;

const std::string & goodTable() {
  static const std::string content = [] {
    const auto directory = Fuzz::temporaryPath( "tables" );
    Rook::mountDirectoryIs( directory );
    Rook::Table< key > table;
    table.mount( "table" );
    for ( uint32_t i = 1; i < 40; ++i ) {
      table.put( { Tunnel::TunnelTable::TunnelId( i ), { Kez::hwTunnelIdTypeDefault, i } } );
    }
    table.del( Tunnel::TunnelTable::TunnelId( 3 ) );
    table.unmount();
    return Fuzz::contentOf( directory + "/table" );
  }();
  return content;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  const auto path = Fuzz::temporaryPath( "table" );
  Fuzz::writeDamaged( path, goodTable(), data, size );
  std::ostringstream out;
  Inspect::kezInspect( { "table", path }, out, out );
  Inspect::kezInspect( { "table", path, "7" }, out, out );
  try {
    Rook::Reader< key > reader( path );
    reader.corruptionHandlerIs( []( const Rook::Corruption & ) {} );
    for ( const auto & record : reader.range() ) {
      try {
        reader.record( record.key );
      } catch ( const Rook::Corruption & ) {}
    }
  } catch ( const std::runtime_error & ) {}
  return 0;
}
