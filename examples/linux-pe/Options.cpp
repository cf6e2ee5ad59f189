#include "Options.h"

#include "Ringlog/Setting.h"
#include "Vex/Domain.h"

#include <algorithm>

namespace LinuxPe {

const char * const usage =
    "usage: linux-pe --socket PATH --port PORT=INTERFACE[/TAG]... [--core INTERFACE] [OPTION]...\n"
    "\n"
    "A small EVPN provider edge over MPLS. Frames are forwarded between network interfaces, which\n"
    "takes root, or the capability CAP_NET_RAW. Its inputs are set over the socket:\n"
    "kez-agent attach --socket PATH.\n"
    "\n"
    "  --port PORT=INTERFACE[/TAG]   a port of the switch, as Ethernet1, and the network interface\n"
    "                                that is its wire; with a TAG an access port, whose frames have\n"
    "                                that tag in the switch and none on the wire\n"
    "  --core INTERFACE              the interface to the provider's network\n"
    "  --socket PATH                 serve lines there\n"
    "  --host-age SECONDS            forget hosts that have sent nothing for so long; 300 otherwise\n"
    "  --trace SETTING               what to trace to standard error, as LinuxPe*/5\n"
    "  --help                        say this\n";

namespace {

using Vex::String;

auto read( const String & of, const auto & parse ) {
  try {
    return parse();
  } catch ( const Vex::ParseError & error ) {
    throw UsageError( of + ": " + error.what() );
  }
}

PortOption readPort( const String & text ) {
  const auto equals = text.find( '=' );
  if ( equals == String::npos || equals == 0 || equals + 1 == text.size() ) {
    throw UsageError( "--port: expected PORT=INTERFACE or PORT=INTERFACE/TAG, found " + text );
  }
  const auto slash = text.find( '/', equals );
  const auto of = "--port " + text;
  PortOption port;
  port.intfId =
      read( of, [ & ] { return Vex::parseBriefly< Wire::IntfId >( text.substr( 0, equals ) ); } );
  port.interface = text.substr( equals + 1, slash == String::npos ? slash : slash - equals - 1 );
  if ( slash != String::npos ) {
    port.accessTag = read(
        of, [ & ] { return Vex::parseBriefly< Bridging::VlanId >( text.substr( slash + 1 ) ); } );
  }
  return port;
}

void expectDistinct( const Options & options ) {
  std::vector< String > names;
  names.reserve( 2 * options.hardware.ports.size() + 1 );
  for ( const auto & port : options.hardware.ports ) {
    names.push_back( Vex::text( port.intfId ) );
    names.push_back( port.interface );
  }
  names.push_back( options.hardware.coreInterface );
  std::ranges::sort( names );
  if ( const auto twice = std::ranges::adjacent_find( names ); twice != names.end() ) {
    throw UsageError( "expected each port and interface once, found " + *twice + " twice" );
  }
}

} // namespace

Options parseOptions( const std::vector< String > & arguments ) {
  Options options;
  for ( size_t i = 0; i < arguments.size(); ++i ) {
    const auto & name = arguments[ i ];
    if ( name == "--help" ) {
      options.help = true;
      return options;
    }
    static constexpr std::string_view withValue[] = { "--port", "--core", "--socket", "--host-age",
                                                      "--trace" };
    if ( std::ranges::find( withValue, name ) == std::end( withValue ) ) {
      throw UsageError( "expected an option, found " + name + "; --help lists them" );
    }
    if ( ++i == arguments.size() ) {
      throw UsageError( name + ": expected a value" );
    }
    const auto & value = arguments[ i ];
    if ( name == "--port" ) {
      options.hardware.ports.push_back( readPort( value ) );
    } else if ( name == "--core" ) {
      options.hardware.coreInterface = value;
    } else if ( name == "--socket" ) {
      options.socket = value;
    } else if ( name == "--host-age" ) {
      options.hardware.hostAge =
          read( name, [ & ] { return Vex::parseHeld< Vex::Interval >( value ); } );
    } else {
      options.trace = read( name, [ & ] { return Ringlog::Setting( value ).text(); } );
    }
  }
  if ( options.socket.empty() ) {
    throw UsageError( "expected --socket PATH; --help says more" );
  }
  expectDistinct( options );
  return options;
}

} // namespace LinuxPe
