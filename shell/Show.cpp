#include "shell/Show.h"

#include "Vex/Clock.h"
#include "shell/Session.h"

namespace KezShell {

using Vex::AttributeType;
using Vex::Entity;
using Vex::String;

namespace {

constexpr size_t width = 100;

// A head and the items after it, in as many lines as they need; the further ones are indented.
class Wrapped {
public:
  Wrapped( std::ostream & out, const String & head, size_t indent )
      : indent_( indent ), used_( head.size() ) {
    out << head;
  }
  void say( std::ostream & out, const String & item ) {
    if ( used_ + 2 + item.size() > width ) {
      out << '\n' << String( indent_, ' ' );
      used_ = indent_;
    } else {
      out << "  ";
      used_ += 2;
    }
    out << item;
    used_ += item.size();
  }

private:
  const size_t indent_;
  size_t used_;
};

String counted( const AttributeType & attribute, const Entity & entity ) {
  return String( attribute.name ) + " (" + std::to_string( attribute.size( entity ) ) + ")";
}

String keyOf( const AttributeType & attribute ) {
  return attribute.keyed() ? "[" + String( attribute.keyType ) + "]" : "";
}

// An entity without a name goes by its class.
String called( const Vex::Ptr< const Entity > & entity ) {
  if ( !entity ) {
    return "none";
  }
  const auto name = entity->fullName();
  return name.empty() ? "(" + String( entity->fwkType().name ) + ")" : name;
}

// An entity's attributes, or one of them, and below its members theirs. What is under way is a
// stack of entities, each held and at one of its attributes, and in there at one of the members.
class Tree : public Answer {
public:
  void entityIs( const Vex::Ptr< const Entity > & entity, size_t indent ) {
    levels_.push_back( { entity, entity->fwkType().attributes(), indent } );
  }
  // One collection of it alone.
  void collectionIs( const Vex::Ptr< const Entity > & entity, const AttributeType & attribute,
                     const String & head, const Selection & selection ) {
    levels_.push_back( { entity, { &attribute }, 0, head, selection } );
  }

  bool say( Session & session ) override {
    auto & out = session.out();
    auto & level = levels_.back();
    if ( level.members ) {
      sayMember( out, level );
    } else if ( level.next < level.attributes.size() ) {
      sayAttribute( out, level, *level.attributes[ level.next++ ] );
    } else {
      levels_.pop_back();
    }
    return !levels_.empty();
  }

private:
  struct Level {
    Vex::Ptr< const Entity > entity;
    std::vector< const AttributeType * > attributes;
    size_t indent;
    String head = {};         // of a collection that is shown alone
    Selection selection = {}; // of its members
    size_t next = 0;          // of the attributes
    size_t shown = 0;         // members of a selection
    std::unique_ptr< Vex::ReflectedWalk > members = nullptr;
    std::optional< Wrapped > keys = std::nullopt; // of a collection of keys alone
  };

  void sayAttribute( std::ostream & out, Level & level, const AttributeType & attribute ) {
    const String blanks( level.indent, ' ' );
    if ( attribute.keyed() ) {
      const auto text =
          level.head.empty() ? blanks + counted( attribute, *level.entity ) : level.head;
      level.members = level.selection.walk( attribute, *level.entity );
      if ( attribute.valueType.empty() ) {
        level.keys.emplace( out, text, level.indent + 2 );
      } else {
        out << text << '\n';
      }
    } else if ( attribute.kind == Vex::referenceKind ) {
      out << blanks << attribute.name << " -> " << called( attribute.target( *level.entity ) )
          << '\n';
    } else {
      out << blanks << attribute.name;
      showValue( out, attribute.value( *level.entity ) );
    }
  }

  void sayMember( std::ostream & out, Level & level ) {
    const auto member =
        level.selection.isFull( level.shown ) ? std::nullopt : level.members->next();
    if ( member && !level.selection.takes( *member ) ) {
      return;
    }
    ++level.shown;
    if ( !member ) {
      out << ( level.keys ? "\n" : "" );
      level.members.reset();
      level.keys.reset();
    } else if ( level.keys ) {
      level.keys->say( out, member->key );
    } else {
      out << String( level.indent + 2, ' ' ) << member->key;
      if ( member->entity ) {
        out << '\n';
        entityIs( member->entity, level.indent + 4 );
      } else {
        showValue( out, member->value );
      }
    }
  }

  std::vector< Level > levels_;
};

class Count : public Answer {
public:
  Count( const Path & path, const Selection & selection )
      : text_( path.text() ), selection_( selection ), holder_( path.holder() ),
        members_( holder_ ? path.attribute()->walk( *holder_ ) : nullptr ) {}

  bool say( Session & session ) override {
    const auto member = members_ && !selection_.isFull( count_ ) ? members_->next() : std::nullopt;
    if ( member ) {
      count_ += selection_.takes( *member );
      return true;
    }
    if ( auto * const json = session.json() ) {
      json->line( [ & ] {
        json->member( "path", text_ );
        json->member( "count", count_ );
      } );
    } else {
      session.out() << count_ << '\n';
    }
    return false;
  }

private:
  const String text_;
  const Selection selection_;
  const Vex::Ptr< const Entity > holder_;
  const std::unique_ptr< Vex::ReflectedWalk > members_;
  size_t count_ = 0;
};

} // namespace

void showValue( std::ostream & out, const String & value ) {
  out << ( value.empty() ? " =" : " = " ) << value << '\n';
}

void showTable( std::ostream & out, const std::vector< std::vector< String > > & rows ) {
  std::vector< size_t > widths;
  for ( const auto & row : rows ) {
    widths.resize( std::max( widths.size(), row.size() ) );
    for ( size_t i = 0; i < row.size(); ++i ) {
      widths[ i ] = std::max( widths[ i ], row[ i ].size() );
    }
  }
  for ( const auto & row : rows ) {
    for ( size_t i = 0; i < row.size(); ++i ) {
      const bool last = i + 1 == row.size();
      out << row[ i ] << ( last ? "\n" : String( widths[ i ] - row[ i ].size() + 2, ' ' ) );
    }
  }
}

void showOverview( std::ostream & out, const Roots & roots, bool isVirtual ) {
  out << "time " << Vex::text( Vex::Clock::now() ) << " s, " << ( isVirtual ? "virtual" : "steady" )
      << '\n';
  const size_t roleWidth = 10;
  size_t nameWidth = 0;
  size_t typeWidth = 0;
  for ( const auto & root : roots ) {
    nameWidth = std::max( nameWidth, root.entity->name().size() + 2 );
    typeWidth = std::max( typeWidth, root.entity->fwkType().name.size() );
  }
  for ( const auto & root : roots ) {
    const auto & type = root.entity->fwkType();
    String head = stringValue( root.role );
    head.resize( roleWidth, ' ' );
    head += root.entity->name();
    head.resize( roleWidth + nameWidth, ' ' );
    head += type.name;
    std::vector< String > counts;
    for ( const auto * attribute : type.attributes() ) {
      if ( attribute->keyed() ) {
        counts.push_back( counted( *attribute, *root.entity ) );
      }
    }
    if ( !counts.empty() ) {
      head.resize( roleWidth + nameWidth + typeWidth, ' ' );
    }
    Wrapped line( out, head, roleWidth + nameWidth );
    for ( const auto & count : counts ) {
      line.say( out, count );
    }
    out << '\n';
  }
}

std::unique_ptr< Answer > showPath( std::ostream & out, const Path & path,
                                    const Selection & selection ) {
  const auto reading = path.read();
  const auto holder = path.attribute() ? path.holder() : nullptr;
  auto tree = std::make_unique< Tree >();
  if ( reading.count && holder ) {
    tree->collectionIs( holder, *path.attribute(),
                        path.text() + " (" + std::to_string( *reading.count ) + ")", selection );
    return tree;
  }
  out << path.text();
  if ( !reading.there ) {
    out << ": none\n";
  } else if ( path.type() ) {
    out << " (" << path.type()->name << ")\n";
    tree->entityIs( path.entity(), 2 );
    return tree;
  } else if ( reading.value ) {
    showValue( out, *reading.value );
  } else {
    out << '\n';
  }
  return nullptr;
}

std::unique_ptr< Answer > countMembers( const Path & path, const Selection & selection ) {
  return std::make_unique< Count >( path, selection );
}

std::vector< String > attributeColumns( const Path & path, const AttributeType & attribute ) {
  const bool writable = path.writable() && attribute.access == Vex::Access::writable;
  return { String( attribute.name ) + keyOf( attribute ), String( text( attribute.kind ) ),
           String( attribute.valueType ), writable ? "writable" : "read-only" };
}

void showClass( std::ostream & out, const Path & path ) {
  const auto * type = path.namesCollection() ? path.attribute()->entityType() : path.type();
  std::vector< std::vector< String > > rows{ { "  attribute", "kind", "value", "access" } };
  const auto describe = [ & ]( const AttributeType & attribute ) {
    rows.push_back( attributeColumns( path, attribute ) );
    rows.back().front().insert( 0, "  " );
  };
  out << path.text();
  if ( !type ) {
    describe( *path.attribute() );
  } else {
    out << ( path.namesCollection() ? keyOf( *path.attribute() ) : "" ) << " (" << type->name
        << ")";
    for ( const auto * attribute : type->attributes() ) {
      describe( *attribute );
    }
  }
  out << '\n';
  showTable( out, rows );
  for ( const auto & operation : type ? type->operations() : Vex::Operations() ) {
    out << "  call " << operation->name;
    for ( const auto & parameter : operation->parameters() ) {
      out << ' ' << parameter.name << ':' << parameter.type;
    }
    out << '\n';
  }
}

} // namespace KezShell
