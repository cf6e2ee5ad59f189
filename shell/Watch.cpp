#include "Ringlog/TextTrace.h"
#include "Vex/Clock.h"
#include "Vex/Describe.h"
#include "Vex/Reactor.h"
#include "shell/Shell.h"
#include "shell/Show.h"
#include "shell/ShowJson.h"

#include <deque>

namespace KezShell {

using Vex::AttributeType;
using Vex::Entity;
using Vex::String;

namespace {

// Changes that are kept for a reader, each with the value that it led to. Those beyond are counted,
// at next to no cost.
constexpr size_t keptChanges = 256;

struct Change {
  double time;
  const AttributeType & attribute;
  String key;
  std::optional< String > value; // none when it is gone
};

bool hasValues( const AttributeType & attribute ) {
  return !attribute.valueType.empty() && !attribute.entityType();
}

void sayTime( std::ostream & out, double time ) {
  Vex::TextBuffer text;
  Ringlog::appendTime( text, time );
  out << text.view() << "  ";
}

// What changes of an entity, or of the attribute or member of it that a path ends with.
class Watch : public Answer {
public:
  Watch( const Path & path, const Vex::Ptr< const Entity > & entity )
      : path_( path ), entity_( entity ), attribute_( path.type() ? nullptr : path.attribute() ),
        changed_( *this, *entity ) {}

  bool isWaiting() const override {
    return !present_ && changes_.empty() && missed_ == 0 && !changed_.markedForDeletion();
  }

  bool say( Session & session ) override {
    if ( present_ ) {
      if ( !present_->say( session ) ) {
        present_.reset();
      }
    } else if ( !changes_.empty() ) {
      sayChange( session, changes_.front() );
      changes_.pop_front();
    } else if ( missed_ > 0 ) {
      sayMissed( session, std::exchange( missed_, 0 ) );
    } else if ( changed_.markedForDeletion() ) {
      sayEnd( session );
      return false;
    }
    return true;
  }

private:
  class Changed : public Vex::ReactorOwner, public Vex::Reactor {
  public:
    Changed( Watch & watch, const Entity & entity )
        : Reactor( *static_cast< ReactorOwner * >( this ) ), watch_( watch ) {
      notifierIs( &entity );
    }

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override { watch_.keep( id, key ); }
    void handleNotifier() override { watch_.wake(); }

    Watch & watch_;
  };

  void keep( Vex::AttrId id, const void * key ) {
    const auto & attribute = attribute_ ? *attribute_ : *entity_->fwkType().attribute( id );
    if ( attribute.id != id || attribute.kind == Vex::reactorsKind ) {
      return;
    }
    if ( missed_ > 0 || changes_.size() == keptChanges ) {
      ++missed_;
      return;
    }
    auto name = attribute.keyed() ? attribute.keyText( key ) : "";
    if ( attribute_ && path_.hasKey() && name != path_.key() ) {
      return;
    }
    const bool waited = isWaiting();
    auto value = valueOf( attribute, name );
    changes_.push_back( { Vex::Clock::now(), attribute, std::move( name ), std::move( value ) } );
    if ( waited ) {
      wake();
    }
  }

  std::optional< String > valueOf( const AttributeType & attribute, const String & key ) const {
    if ( attribute.keyed() ) {
      const auto member = attribute.member( *entity_, key );
      return member ? std::optional( member->value ) : std::nullopt;
    }
    return attribute.kind == Vex::referenceKind ? "" : attribute.value( *entity_ );
  }

  // As it stands below the entity.
  static String nameOf( const Change & change ) {
    return String( change.attribute.name ) +
           ( change.attribute.keyed() ? "[" + change.key + "]" : "" );
  }

  void sayChange( Session & session, const Change & change ) const {
    const auto name = nameOf( change );
    if ( auto * const json = session.json() ) {
      json->line( [ & ] {
        json->member( "time", change.time );
        json->member( "path", entityPath() + "." + name );
        json->member( "there", change.value.has_value() );
        if ( change.value && hasValues( change.attribute ) ) {
          json->member( "value", *change.value, change.attribute.valueForm );
        }
      } );
      return;
    }
    auto & out = session.out();
    sayTime( out, change.time );
    out << name;
    if ( !change.value ) {
      out << " is gone\n";
    } else if ( hasValues( change.attribute ) ) {
      showValue( out, *change.value );
    } else {
      out << '\n';
    }
  }

  void sayMissed( Session & session, uint64_t missed ) {
    const double time = Vex::Clock::now();
    auto * const json = session.json();
    if ( json ) {
      json->line( [ & ] {
        json->member( "time", time );
        json->member( "missed", missed );
      } );
    } else {
      sayTime( session.out(), time );
      session.out() << missed << " more changes, which were not kept; what stands now:\n";
    }
    present_ = json ? showPathInJson( *json, path_ ) : showPath( session.out(), path_ );
  }

  void sayEnd( Session & session ) const {
    const auto path = entityPath();
    if ( auto * const json = session.json() ) {
      json->line( [ & ] {
        json->member( "time", Vex::Clock::now() );
        json->member( "path", path );
        json->member( "there", false );
      } );
    } else {
      sayTime( session.out(), Vex::Clock::now() );
      session.out() << path << " is gone, and nothing more is watched\n";
    }
  }

  // Of what is watched, or of what has the attribute that is.
  String entityPath() const { return attribute_ ? path_.holderText() : path_.text(); }

  const Path path_;
  const Vex::Ptr< const Entity > entity_;
  const AttributeType * const attribute_; // null: all of the entity's
  std::deque< Change > changes_;
  uint64_t missed_ = 0;               // after those
  std::unique_ptr< Answer > present_; // what stands, after some were missed
  Changed changed_;
};

void watch( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  auto ahead = in;
  if ( takeRest( ahead ) == "off" ) {
    session.standingAnswerDel();
    return;
  }
  const size_t column = in.offset() + 1;
  const Path path( shell.roots(), in );
  Vex::expectEnd( in );
  const auto entity = path.type() ? path.entity() : path.holder();
  if ( !path.type() && path.attribute()->kind == Vex::computedKind ) {
    throw BadLine( path.endColumn(), "expected an attribute that tells of its changes, which " +
                                         path.text() + " does not: it is computed" );
  }
  if ( !entity ) {
    throw BadLine( column, "expected what is there; " +
                               ( path.type() ? path.text() : path.holderText() ) + " is not" );
  }
  session.answerIs( std::make_unique< Watch >( path, entity ) );
}

} // namespace

void addWatch( Shell & shell ) {
  shell.commandIs(
      { "watch", "PATH | off", "tell what changes, as it does",
        "What is set, comes and goes of the entity that PATH leads to, or of one attribute or "
        "member of\n"
        "it, with the time. Of entities in a collection it tells that they come and go; what changes "
        "in\n"
        "one is watched at its own path. When changes come faster than they are read, it tells how\n"
        "many are left out, and what stands then. A session at a door watches until it gives "
        "another\n"
        "line; a console tells what has changed after each line, until watch off.\n"
        "  watch switch.esiData\n"
        "  watch off\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { watch( shell, in, session ); },
        true },
      "expect" );
}

} // namespace KezShell
