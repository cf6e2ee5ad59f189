#include "shell/Show.h"

#include "Vex/Clock.h"

namespace Agent {

using Vex::AttributeType;
using Vex::Entity;
using Vex::String;

namespace {

constexpr size_t width = 100;

// `head` and the items after it, in as many lines as they need; the further ones are indented.
void showWrapped( std::ostream & out, const String & head, const std::vector< String > & items,
                  size_t indent ) {
  size_t used = head.size();
  out << head;
  for ( const auto & item : items ) {
    if ( used + 2 + item.size() > width ) {
      out << '\n' << String( indent, ' ' );
      used = indent;
    } else {
      out << "  ";
      used += 2;
    }
    out << item;
    used += item.size();
  }
  out << '\n';
}

String counted( const AttributeType & attribute, const Entity & entity ) {
  return String( attribute.name ) + " (" + std::to_string( attribute.size( entity ) ) + ")";
}

void showValue( std::ostream & out, const String & value ) {
  out << ( value.empty() ? " =" : " = " ) << value << '\n';
}

// An entity without a name goes by its class.
String called( const Vex::Ptr< const Entity > & entity ) {
  if ( !entity ) {
    return "none";
  }
  const auto name = entity->fullName();
  return name.empty() ? "(" + String( entity->fwkType().name ) + ")" : name;
}

void showEntity( std::ostream & out, const Entity & entity, size_t indent );

void showCollection( std::ostream & out, const AttributeType & attribute, const Entity & entity,
                     const String & head, size_t indent ) {
  const bool keysAlone = attribute.valueType.empty();
  std::vector< String > keys;
  if ( !keysAlone ) {
    out << head << '\n';
  }
  attribute.forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
    if ( keysAlone ) {
      keys.push_back( member.key );
      return;
    }
    out << String( indent + 2, ' ' ) << member.key;
    if ( member.entity ) {
      out << '\n';
      showEntity( out, *member.entity, indent + 4 );
    } else {
      showValue( out, member.value );
    }
  } );
  if ( keysAlone ) {
    showWrapped( out, head, keys, indent + 2 );
  }
}

void showEntity( std::ostream & out, const Entity & entity, size_t indent ) {
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    const String blanks( indent, ' ' );
    if ( attribute->keyed() ) {
      showCollection( out, *attribute, entity, blanks + counted( *attribute, entity ), indent );
    } else if ( attribute->kind == Vex::referenceKind ) {
      out << blanks << attribute->name << " -> " << called( attribute->target( entity ) ) << '\n';
    } else {
      out << blanks << attribute->name;
      showValue( out, attribute->value( entity ) );
    }
  }
}

} // namespace

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
    showWrapped( out, head, counts, roleWidth + nameWidth );
  }
}

void showPath( std::ostream & out, const Path & path ) {
  const auto reading = path.read();
  const auto holder = path.attribute() ? path.holder() : nullptr;
  if ( reading.count && holder ) {
    const auto head = path.text() + " (" + std::to_string( *reading.count ) + ")";
    showCollection( out, *path.attribute(), *holder, head, 0 );
    return;
  }
  out << path.text();
  if ( !reading.there ) {
    out << ": none\n";
  } else if ( path.type() ) {
    out << " (" << path.type()->name << ")\n";
    showEntity( out, *path.entity(), 2 );
  } else if ( reading.value ) {
    showValue( out, *reading.value );
  } else {
    out << '\n';
  }
}

void showClass( std::ostream & out, const Path & path ) {
  const auto * type = path.namesCollection() ? path.attribute()->entityType() : path.type();
  std::vector< std::vector< String > > rows{ { "  attribute", "kind", "value", "access" } };
  const auto keyOf = []( const AttributeType & attribute ) {
    return attribute.keyed() ? "[" + String( attribute.keyType ) + "]" : "";
  };
  const auto describe = [ & ]( const AttributeType & attribute ) {
    const bool writable = path.writable() && attribute.access == Vex::Access::writable;
    rows.push_back( { "  " + String( attribute.name ) + keyOf( attribute ),
                      String( text( attribute.kind ) ), String( attribute.valueType ),
                      writable ? "writable" : "read-only" } );
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

} // namespace Agent
