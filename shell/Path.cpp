#include "shell/Path.h"

#include "Vex/Assert.h"
#include "shell/Nearest.h"

namespace KezShell {

using Vex::AttributeType;
using Vex::Entity;
using Vex::Ptr;
using Vex::String;

namespace {

// The names that an operator may choose from.
template< class All, class Name > String choices( const All & all, Name && name ) {
  String list;
  for ( const auto & each : all ) {
    list += list.empty() ? "" : ", ";
    list += name( each );
  }
  return list.empty() ? "it has none" : list;
}

Ptr< const Entity > next( const Entity & entity, const AttributeType & attribute,
                          const std::optional< String > & key ) {
  if ( attribute.kind == Vex::referenceKind ) {
    return attribute.target( entity );
  }
  const auto member = attribute.member( entity, *key );
  return member ? member->entity : nullptr;
}

// Reflection hands out members as constant. Those that a path may write it reached from a root
// that may be written, through attributes that may; what an entity does when it is told to, it may
// do wherever a path leads to it.
Ptr< Entity > unlocked( const Ptr< const Entity > & entity ) {
  return const_cast< Entity * >( entity.get() );
}

} // namespace

Path::Path( const Roots & roots, Vex::TextCursor & in, End end ) : rootOffset_( in.offset() ) {
  readRoot( roots, in );
  while ( !operation_ && in.skip( "." ) ) {
    readStep( in, end );
  }
  if ( end == End::operation && !operation_ ) {
    in.fail( type_ ? "'.' and an operation of " + String( type_->name )
                   : "an operation of an entity, which " + text() + " is not" );
  }
  if ( !in.done() && !in.startsWith( " " ) && !in.startsWith( "\t" ) ) {
    in.fail( operation_ ? "a blank or the end of the line"
                        : "'.', a blank or the end of the line" );
  }
  endOffset_ = in.offset();
  takeWord( in );
}

void Path::readRoot( const Roots & roots, Vex::TextCursor & in ) {
  const auto name = takeUntil( in, ".[] \t" );
  root_ = roots.root( name );
  if ( !root_ ) {
    std::vector< String > names;
    for ( const auto & each : roots ) {
      names.push_back( each.entity->name() );
    }
    const auto near = nearest( names, name );
    const auto more =
        near.size() < names.size() ? "; show lists all " + std::to_string( names.size() ) : "";
    failAt( rootOffset_,
            "a root (" + choices( near, []( const String & each ) { return each; } ) + more + ")",
            name );
  }
  type_ = &root_->entity->fwkType();
}

void Path::readStep( Vex::TextCursor & in, End end ) {
  Step step{ nullptr, std::nullopt, in.offset() };
  const auto name = takeUntil( in, ".[] \t" );
  if ( !type_ ) {
    failAt( step.offset - 1, "the end of the path, since " + text() + " is no entity", "." );
  }
  step.attribute = type_->attribute( name );
  if ( !step.attribute && end == End::operation ) {
    operation_ = type_->operation( name );
    if ( operation_ ) {
      return;
    }
    const auto names = choices( type_->operations(), []( auto & each ) { return each->name; } );
    failAt( step.offset, "an operation of " + String( type_->name ) + " (" + names + ")", name );
  }
  if ( !step.attribute ) {
    const auto names = choices( type_->attributes(), []( auto * each ) { return each->name; } );
    failAt( step.offset, "an attribute of " + String( type_->name ) + " (" + names + ")", name );
  }
  if ( in.startsWith( "[" ) ) {
    readKey( in, step );
  } else if ( step.attribute->keyed() && in.startsWith( "." ) ) {
    in.fail( "'[' and a key of " + String( name ) );
  }
  steps_.push_back( step );
  type_ = namesCollection() ? nullptr : step.attribute->entityType();
  if ( const auto there = type_ ? entity() : nullptr ) {
    type_ = &there->fwkType();
  }
}

void Path::readKey( Vex::TextCursor & in, Step & step ) const {
  if ( !step.attribute->keyed() ) {
    in.fail( "no key, since " + String( step.attribute->name ) + " is no collection" );
  }
  in.skip( "[" );
  const size_t offset = in.offset();
  const auto key = takeUntil( in, "]" );
  if ( key.empty() ) {
    in.fail( "a key, " + String( step.attribute->keyType ) );
  }
  in.expect( "]" );
  step.key = inTextAt( offset + 1, [ & ] { return step.attribute->canonicalKey( key ); } );
}

String Path::text( size_t steps ) const {
  String text = root_->entity->name();
  for ( size_t i = 0; i < steps; ++i ) {
    text += "." + String( steps_[ i ].attribute->name );
    text += steps_[ i ].key ? "[" + *steps_[ i ].key + "]" : "";
  }
  return text;
}

Ptr< const Entity > Path::walk( size_t steps ) const {
  Ptr< const Entity > entity = root_->entity;
  for ( size_t i = 0; entity && i < steps; ++i ) {
    entity = next( *entity, *steps_[ i ].attribute, steps_[ i ].key );
  }
  return entity;
}

Reading Path::read() const {
  if ( type_ ) {
    return { entity() != nullptr, {}, {} };
  }
  const auto entity = holder();
  if ( namesCollection() ) {
    const size_t size = entity ? attribute()->size( *entity ) : 0;
    return { size > 0, {}, size };
  }
  if ( !entity ) {
    return {};
  }
  if ( !attribute()->keyed() ) {
    return { true, attribute()->value( *entity ), {} };
  }
  const auto member = attribute()->member( *entity, key() );
  if ( !member ) {
    return {};
  }
  return { true, hasValue() ? std::optional( member->value ) : std::nullopt, {} };
}

String Path::call( Vex::TextCursor & in ) const {
  const auto callee = unlocked( entity() );
  if ( !callee ) {
    throw BadLine( rootOffset_ + 1, "expected an entity that is there; " + text() + " is not" );
  }
  return operation_->call( *callee, in );
}

bool Path::writable() const {
  return root_->access == Vex::Access::writable &&
         std::all_of( steps_.begin(), steps_.end(), []( const Step & step ) {
           return step.attribute->access == Vex::Access::writable;
         } );
}

void Path::checkWritable() const {
  const auto refuse = []( size_t offset, std::string_view name, const char * why ) {
    throw BadLine( offset + 1,
                   "expected something that may be written; " + String( name ) + " is " + why );
  };
  if ( root_->access == Vex::Access::readOnly ) {
    refuse( rootOffset_, root_->entity->name(),
            root_->role == Role::output ? "an output" : "read-only" );
  }
  for ( const auto & step : steps_ ) {
    if ( step.attribute->kind == Vex::referenceKind ) {
      refuse( step.offset, step.attribute->name, "a reference" );
    }
    if ( step.attribute->access == Vex::Access::readOnly ) {
      refuse( step.offset, step.attribute->name, "read-only" );
    }
  }
  if ( steps_.empty() ) {
    throw BadLine( endColumn(), "expected '.' and an attribute of " + String( type_->name ) );
  }
}

Ptr< Entity > Path::writableHolder() const {
  return unlocked( holder() );
}

Ptr< Entity > Path::holderIs() const {
  auto entity = root_->entity;
  for ( size_t i = 0; i + 1 < steps_.size(); ++i ) {
    const auto & step = steps_[ i ];
    step.attribute->memberIs( *entity, *step.key, "" );
    entity = unlocked( next( *entity, *step.attribute, step.key ) );
    VEX_ASSERT( entity );
  }
  return entity;
}

} // namespace KezShell
