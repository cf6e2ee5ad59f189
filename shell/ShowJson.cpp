#include "shell/ShowJson.h"

#include "shell/Session.h"

namespace KezShell {

using Vex::AttributeType;
using Vex::Entity;
using Vex::JsonWriter;
using Vex::String;

namespace {

const char * accessName( bool writable ) {
  return writable ? "writable" : "read-only";
}

// Of an attribute: its kind, and the types of its keys and values.
void putTypes( JsonWriter & out, const AttributeType & attribute ) {
  out.member( "kind", text( attribute.kind ) );
  if ( attribute.keyed() ) {
    out.member( "keyType", attribute.keyType );
  }
  if ( !attribute.valueType.empty() ) {
    out.member( "valueType", attribute.valueType );
  }
}

void putEntity( JsonWriter & out, const String & path, const Entity & entity ) {
  out.member( "path", path );
  out.member( "class", entity.fwkType().name );
}

void putCollection( JsonWriter & out, const String & path, const AttributeType & attribute,
                    size_t size ) {
  out.member( "path", path );
  putTypes( out, attribute );
  out.member( "size", size );
}

// A member of a collection, which is no entity.
void putMember( JsonWriter & out, const String & path, const AttributeType & attribute,
                std::string_view key, const std::optional< String > & value ) {
  out.member( "path", path );
  out.member( "key", key, attribute.keyForm );
  if ( value && !attribute.valueType.empty() ) {
    out.member( "value", *value, attribute.valueForm );
  }
}

void putValue( JsonWriter & out, const String & path, const AttributeType & attribute,
               const String & value ) {
  out.member( "path", path );
  putTypes( out, attribute );
  out.member( "value", value, attribute.valueForm );
}

void putReference( JsonWriter & out, const String & path, const AttributeType & attribute,
                   const Vex::Ptr< const Entity > & target ) {
  out.member( "path", path );
  putTypes( out, attribute );
  out.member( "to", target ? std::optional( target->fullName() ) : std::nullopt );
}

// As the tree of Show.cpp, with the path of each entity in place of an indent.
class JsonTree : public Answer {
public:
  void entityIs( const Vex::Ptr< const Entity > & entity, const String & path ) {
    levels_.push_back( { entity, entity->fwkType().attributes(), path } );
  }
  // The members of one collection of it alone.
  void membersAre( const Vex::Ptr< const Entity > & entity, const AttributeType & attribute,
                   const String & path, const Selection & selection ) {
    levels_.push_back(
        { entity, { &attribute }, path, selection, 1, selection.walk( attribute, *entity ) } );
  }

  bool say( Session & session ) override {
    auto & out = *session.json();
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
    String path;
    Selection selection = {}; // of the members of a collection that is shown alone
    size_t next = 0;          // of the attributes
    std::unique_ptr< Vex::ReflectedWalk > members = nullptr;
    size_t shown = 0; // members of a selection

    String currentPath() const { return path + "." + String( attributes[ next - 1 ]->name ); }
  };

  void sayAttribute( JsonWriter & out, Level & level, const AttributeType & attribute ) {
    const auto path = level.currentPath();
    if ( attribute.keyed() ) {
      level.members = attribute.walk( *level.entity );
    }
    out.line( [ & ] {
      if ( level.members ) {
        putCollection( out, path, attribute, attribute.size( *level.entity ) );
      } else if ( attribute.kind == Vex::referenceKind ) {
        putReference( out, path, attribute, attribute.target( *level.entity ) );
      } else {
        putValue( out, path, attribute, attribute.value( *level.entity ) );
      }
    } );
  }

  void sayMember( JsonWriter & out, Level & level ) {
    const auto member =
        level.selection.isFull( level.shown ) ? std::nullopt : level.members->next();
    if ( !member ) {
      level.members.reset();
      return;
    }
    if ( !level.selection.takes( *member ) ) {
      return;
    }
    ++level.shown;
    const auto path = level.currentPath() + "[" + member->key + "]";
    out.line( [ & ] {
      if ( member->entity ) {
        putEntity( out, path, *member->entity );
        out.member( "key", member->key, level.attributes[ level.next - 1 ]->keyForm );
      } else {
        putMember( out, path, *level.attributes[ level.next - 1 ], member->key, member->value );
      }
    } );
    if ( member->entity ) {
      entityIs( member->entity, path );
    }
  }

  std::vector< Level > levels_;
};

void putAttribute( JsonWriter & out, const Path & path, const AttributeType & attribute ) {
  out.object( [ & ] {
    out.member( "attribute", attribute.name );
    putTypes( out, attribute );
    out.member( "access",
                accessName( path.writable() && attribute.access == Vex::Access::writable ) );
  } );
}

void putOperation( JsonWriter & out, const Vex::OperationType & operation ) {
  out.object( [ & ] {
    out.member( "operation", operation.name );
    out.arrayMember( "parameters", [ & ] {
      for ( const auto & parameter : operation.parameters() ) {
        out.object( [ & ] {
          out.member( "name", parameter.name );
          out.member( "type", parameter.type );
        } );
      }
    } );
  } );
}

} // namespace

void showOverviewInJson( JsonWriter & out, const Roots & roots ) {
  for ( const auto & root : roots ) {
    out.line( [ & ] {
      putEntity( out, root.entity->name(), *root.entity );
      out.member( "role", stringValue( root.role ) );
      out.member( "access", accessName( root.access == Vex::Access::writable ) );
      out.name( "sizes" );
      out.object( [ & ] {
        for ( const auto * attribute : root.entity->fwkType().attributes() ) {
          if ( attribute->keyed() ) {
            out.member( attribute->name, attribute->size( *root.entity ) );
          }
        }
      } );
    } );
  }
}

std::unique_ptr< Answer > showPathInJson( JsonWriter & out, const Path & path,
                                          const Selection & selection ) {
  const auto reading = path.read();
  const auto holder = path.attribute() ? path.holder() : nullptr;
  auto tree = std::make_unique< JsonTree >();
  const auto text = path.text();
  if ( path.type() && reading.there ) {
    out.line( [ & ] { putEntity( out, text, *path.entity() ); } );
    tree->entityIs( path.entity(), text );
    return tree;
  }
  out.line( [ & ] {
    if ( reading.count && holder ) {
      putCollection( out, text, *path.attribute(), *reading.count );
    } else if ( !reading.there ) {
      out.member( "path", text );
      out.member( "there", false );
    } else if ( path.hasKey() ) {
      putMember( out, text, *path.attribute(), path.key(), reading.value );
    } else {
      putValue( out, text, *path.attribute(), *reading.value );
    }
  } );
  if ( !reading.count || !holder ) {
    return nullptr;
  }
  tree->membersAre( holder, *path.attribute(), path.holderText(), selection );
  return tree;
}

void showClassInJson( JsonWriter & out, const Path & path ) {
  const auto * type = path.namesCollection() ? path.attribute()->entityType() : path.type();
  out.line( [ & ] {
    out.member( "path", path.text() );
    if ( type ) {
      out.member( "class", type->name );
    }
    if ( path.namesCollection() ) {
      out.member( "keyType", path.attribute()->keyType );
    }
    out.arrayMember( "attributes", [ & ] {
      if ( !type ) {
        putAttribute( out, path, *path.attribute() );
        return;
      }
      for ( const auto * attribute : type->attributes() ) {
        putAttribute( out, path, *attribute );
      }
    } );
    out.arrayMember( "operations", [ & ] {
      for ( const auto & operation : type ? type->operations() : Vex::Operations() ) {
        putOperation( out, *operation );
      }
    } );
  } );
}

} // namespace KezShell
