// What may stand where a line ends, for clients that complete what is typed.
#include "shell/Path.h"
#include "shell/Shell.h"
#include "shell/Show.h"

namespace KezShell {

using Vex::String;

namespace {

// No more keys than somebody reads, sought among no more members than take no time.
constexpr size_t mostKeys = 100;
constexpr size_t mostMembers = 10'000;

class Completion {
public:
  Completion( const Shell & shell, Session & session, std::string_view line )
      : shell_( shell ), session_( session ) {
    Vex::TextCursor in( line );
    takeAnswerForm( in );
    const auto command = in.rest();
    const auto name = takeWord( in );
    if ( name.size() == command.size() ) {
      commands( name );
      return;
    }
    const auto typed = lastWord( in.rest() );
    const auto at = typed.find_last_of( ".[" );
    if ( at == typed.npos ) {
      roots( typed );
    } else if ( typed.find( ']', at ) == typed.npos ) {
      const auto head = typed.substr( 0, at );
      const auto partial = typed.substr( at + 1 );
      Vex::TextCursor path( head );
      if ( typed[ at ] == '[' ) {
        keys( Path( shell.roots(), path ), partial );
      } else {
        attributes( Path( shell.roots(), path ), partial, name == "call" );
      }
    }
  }

private:
  // Keys may hold blanks.
  static std::string_view lastWord( std::string_view text ) {
    size_t begin = 0;
    bool inKey = false;
    for ( size_t i = 0; i < text.size(); ++i ) {
      inKey = text[ i ] == '[' || ( inKey && text[ i ] != ']' );
      begin = text[ i ] == ' ' && !inKey ? i + 1 : begin;
    }
    return text.substr( begin );
  }

  // What is missing of it, and after it, of what was typed; the whole; and what it is.
  void sayIfItFits( std::string_view typed, std::string_view whole, std::string_view after,
                    const String & about ) {
    if ( !whole.starts_with( typed ) ) {
      return;
    }
    const auto missing = String( whole.substr( typed.size() ) ) + String( after );
    if ( auto * const json = session_.json() ) {
      json->line( [ & ] {
        json->member( "missing", missing );
        json->member( "whole", whole );
        json->member( "about", about );
      } );
    } else {
      session_.out() << missing << '\t' << whole << '\t' << about << '\n';
    }
  }

  void commands( std::string_view typed ) {
    for ( const auto & each : shell_.commands() ) {
      if ( !each.summary.empty() ) {
        sayIfItFits( typed, each.name, " ", each.arguments );
      }
    }
  }

  void roots( std::string_view typed ) {
    for ( const auto & each : shell_.roots() ) {
      sayIfItFits( typed, each.entity->name(), "",
                   String( stringValue( each.role ) ) + ", " +
                       String( each.entity->fwkType().name ) );
    }
  }

  void attributes( const Path & path, std::string_view typed, bool operations ) {
    if ( !path.type() ) {
      return;
    }
    for ( const auto * each : path.type()->attributes() ) {
      String about;
      for ( const auto & column : attributeColumns( path, *each ) ) {
        about += ( about.empty() || column.empty() ? "" : ", " ) + column;
      }
      sayIfItFits( typed, each->name, "", about );
    }
    for ( const auto & each : operations ? path.type()->operations() : Vex::Operations() ) {
      sayIfItFits( typed, each->name, " ", "operation" );
    }
  }

  void keys( const Path & path, std::string_view typed ) {
    const auto holder = path.namesCollection() ? path.holder() : nullptr;
    if ( !holder ) {
      return;
    }
    const auto members = path.attribute()->walk( *holder );
    size_t left = mostKeys;
    for ( size_t seen = 0; left > 0 && seen < mostMembers; ++seen ) {
      const auto member = members->next();
      if ( !member ) {
        return;
      }
      if ( member->key.starts_with( typed ) ) {
        sayIfItFits( typed, member->key, "]", String( path.attribute()->valueType ) );
        --left;
      }
    }
  }

  const Shell & shell_;
  Session & session_;
};

} // namespace

void addCompletion( Shell & shell ) {
  Command complete;
  complete.name = "complete";
  complete.ofSession = true;
  complete.run = [ &shell ]( Vex::TextCursor & in, Session & session ) {
    Completion( shell, session, takeRest( in ) );
  };
  shell.commandIs( std::move( complete ) );
}

} // namespace KezShell
