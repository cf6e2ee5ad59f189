#include "client/Attach.h"

#include "client/Connection.h"
#include "client/Interrupts.h"
#include "client/LineEditor.h"
#include "shell/Line.h"

#include <cstdlib>
#include <istream>
#include <ostream>
#include <unistd.h>

namespace Agent {

using Vex::String;

namespace {

class Client {
public:
  Client( const String & socket, bool json, std::ostream & out, std::ostream & err )
      : socket_( socket ), json_( json ), connection_( socket ), out_( out ), err_( err ) {
    begin();
    const auto * const noColour = std::getenv( "NO_COLOR" );
    coloured_ = isatty( STDERR_FILENO ) && !( noColour && *noColour );
  }

  Status ask( const String & line ) {
    if ( line.find( '\n' ) != String::npos ) {
      throw std::runtime_error( "expected a line without a line end in it" );
    }
    const auto status = connection_.ask( line, [ & ]( std::string_view text, bool isError ) {
      if ( !isError ) {
        out_ << text << '\n';
        return;
      }
      out_.flush();
      err_ << ( coloured_ ? "\033[31m" : "" ) << text << ( coloured_ ? "\033[m" : "" ) << '\n';
    } );
    out_.flush();
    return status;
  }

  // Lines as a program gives them: the exit status.
  template< class Next > int run( Next && next ) {
    auto worst = Status::ok;
    while ( const auto line = next() ) {
      worst = std::max( worst, ask( *line ) );
      if ( worst == Status::bad ) {
        break;
      }
    }
    return static_cast< int >( worst );
  }

  int converse() {
    const Interrupts interrupts;
    LineEditor editor( connection_.isReadOnly() ? "kez (read-only)> " : "kez> ",
                       [ this ]( std::string_view typed ) { return complete( typed ); } );
    while ( const auto line = editor.nextLine() ) {
      const auto text = KezShell::trimmed( *line );
      if ( text == "quit" || text == "exit" ) {
        break;
      }
      try {
        ask( *line );
      } catch ( const Interrupted & ) {
        // The rest of the answer goes with the connection.
        out_ << std::endl;
        connection_ = Connection( socket_ );
        begin();
      }
    }
    return 0;
  }

private:
  void begin() {
    connection_.pauseIs( [ this ] { out_.flush(); } );
    if ( json_ ) {
      connection_.ask( "json on", []( std::string_view, bool ) {} );
    }
  }

  std::vector< LineEditor::Candidate > complete( std::string_view typed ) {
    std::vector< LineEditor::Candidate > candidates;
    const auto hear = [ & ]( std::string_view line, bool isError ) {
      if ( !isError ) {
        candidates.push_back( LineEditor::candidate( line ) );
      }
    };
    connection_.ask( "--text complete " + String( typed ), hear );
    return candidates;
  }

  const String socket_;
  const bool json_;
  Connection connection_;
  std::ostream & out_;
  std::ostream & err_;
  bool coloured_ = false;
};

} // namespace

int attach( const AttachOptions & options, std::istream & input, bool isTerminal,
            std::ostream & out, std::ostream & err ) {
  Client client( options.socket, options.json, out, err );
  if ( options.lines.empty() && isTerminal ) {
    return client.converse();
  }
  if ( options.lines.empty() ) {
    return client.run( [ & ]() -> std::optional< String > {
      String line;
      return std::getline( input, line ) ? std::optional( line ) : std::nullopt;
    } );
  }
  return client.run( [ &, at = options.lines.begin() ]() mutable -> std::optional< String > {
    return at == options.lines.end() ? std::nullopt : std::optional( *at++ );
  } );
}

} // namespace Agent
