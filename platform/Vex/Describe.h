// The reflected descriptions of the attribute kinds, one static object an attribute, made from
// the class and the pointer to its storage.
#pragma once

#include "Vex/Reflection.h"
#include "Vex/Storage.h"
#include "Vex/Value.h"

namespace Vex {

// The name of a type in messages and help.
template< class T > constexpr std::string_view typeName() {
  if constexpr ( requires { T::vexTypeName(); } ) {
    return T::vexTypeName();
  } else if constexpr ( requires { vexTypeName( T() ); } ) {
    return vexTypeName( T() );
  } else if constexpr ( requires { typename T::value_type; } && !std::is_same_v< T, String > ) {
    return typeName< typename T::value_type >();
  } else if constexpr ( std::is_same_v< T, bool > ) {
    return "bool";
  } else if constexpr ( std::is_floating_point_v< T > ) {
    return "number";
  } else if constexpr ( std::is_integral_v< T > ) {
    return "whole number";
  } else {
    return "text";
  }
}

template< class T > constexpr DescribedType describedType() {
  if constexpr ( std::is_same_v< T, bool > ) {
    return { typeName< T >(), TextForm::truth };
  } else if constexpr ( std::is_arithmetic_v< T > || requires { T::vexLowest; } ) {
    return { typeName< T >(), TextForm::number };
  } else {
    return typeName< T >();
  }
}

template< class T > String canonical( std::string_view text ) {
  return briefText( parseBriefly< T >( text ) );
}

// The storage of attribute `storage` of class C, or what the function gives that computes it.
template< class C, auto storage > struct StorageOf {
  using Type = std::remove_cvref_t< std::invoke_result_t< decltype( storage ), const C & > >;
  static decltype( auto ) of( const Entity & entity ) {
    return std::invoke( storage, static_cast< const C & >( entity ) );
  }
  static decltype( auto ) of( Entity & entity ) {
    return std::invoke( storage, static_cast< C & >( entity ) );
  }
};

inline constexpr AttributeKind valueKind{ "value" };
// One value.
template< class C, auto storage > class ValueType : public AttributeType {
  using Storage = StorageOf< C, storage >;
  using T = typename Storage::Type::Declared;

public:
  using Set = void ( C::* )( Arg< HeldBy< T > > );
  ValueType( std::string_view attrName, AttrId attrId, Access attrAccess, Set set,
             void ( C::*resetTo )() )
      : AttributeType( attrName, attrId, valueKind, attrAccess, {}, describedType< T >() ),
        set_( set ), reset_( resetTo ) {}

  String value( const Entity & entity ) const override {
    return briefText( Storage::of( entity ).get() );
  }
  void valueIs( Entity & entity, std::string_view text ) const override {
    ( static_cast< C & >( entity ).*set_ )( parseHeld< T >( text ) );
  }
  void reset( Entity & entity ) const override { ( static_cast< C & >( entity ).*reset_ )(); }
  String canonicalValue( std::string_view text ) const override {
    return briefText( parseHeld< T >( text ) );
  }

private:
  const Set set_;
  void ( C::*const reset_ )();
};

inline constexpr AttributeKind computedKind{ "computed" };
// A value that is computed when it is asked for.
template< class C, class T > class ComputedType : public AttributeType {
public:
  ComputedType( std::string_view attrName, AttrId attrId, T ( C::*read )() const )
      : AttributeType( attrName, attrId, computedKind, Access::readOnly, {}, describedType< T >() ),
        read_( read ) {}

  String value( const Entity & entity ) const override {
    return briefText( ( static_cast< const C & >( entity ).*read_ )() );
  }
  String canonicalValue( std::string_view text ) const override { return canonical< T >( text ); }

private:
  T ( C::*read_ )() const;
};

// A reference to another entity.
template< class C, auto storage > class ReferenceType : public AttributeType {
  using Storage = StorageOf< C, storage >;
  using T = std::remove_cvref_t< decltype( *std::declval< typename Storage::Type >() ) >;

public:
  ReferenceType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : AttributeType( attrName, attrId, referenceKind, attrAccess, {}, T::vexTypeName() ) {}

  const EntityType * entityType() const override { return &T::vexType(); }
  Ptr< const Entity > target( const Entity & entity ) const override {
    return Storage::of( entity );
  }
  bool writesTarget() const override {
    return !std::is_const_v<
        std::remove_reference_t< decltype( *std::declval< typename Storage::Type >() ) > >;
  }
};

// `reflect( walk )` gives the member that a walk of the range stands on. It is read as soon as the
// walk has come there: later it may be gone.
template< class Range, class Reflect >
std::unique_ptr< ReflectedWalk > reflectedWalk( const Range & range, const Reflect & reflect ) {
  class RangeWalk : public ReflectedWalk {
  public:
    RangeWalk( const Range & range, const Reflect & reflect )
        : range_( range ), reflect_( reflect ) {}

    std::optional< ReflectedMember > next() override {
      if ( at_ ) {
        ++at_->walk;
      } else {
        at_.emplace( range_ );
      }
      return at_->walk != nullptr ? std::optional( reflect_( at_->walk ) ) : std::nullopt;
    }

  private:
    // Walks stay where they begin.
    struct At {
      explicit At( const Range & range ) : walk( range.begin() ) {}
      decltype( std::declval< Range >().begin() ) walk;
    };

    const Range range_;
    const Reflect reflect_;
    std::optional< At > at_;
  };
  return std::make_unique< RangeWalk >( range, reflect );
}

// What the keyed kinds have alike.
template< class C, auto storage > class KeyedType : public AttributeType {
protected:
  using Storage = StorageOf< C, storage >;
  using Key = typename Storage::Type::Key;

  KeyedType( std::string_view attrName, AttrId attrId, AttributeKind attrKind, Access attrAccess,
             DescribedType values )
      : AttributeType( attrName, attrId, attrKind, attrAccess, describedType< Key >(), values ) {}

  virtual ReflectedMember reflect( const Key & key, const typename Storage::Type & all ) const = 0;

public:
  size_t size( const Entity & entity ) const override { return Storage::of( entity ).size(); }
  std::optional< ReflectedMember > member( const Entity & entity,
                                           std::string_view text ) const override {
    const auto key = parseBriefly< Key >( text );
    const auto & all = Storage::of( entity );
    return all.has( key ) ? std::optional( reflect( key, all ) ) : std::nullopt;
  }
  std::unique_ptr< ReflectedWalk > walk( const Entity & entity ) const override {
    return reflectedWalk( Storage::of( entity ).range(), [ this, &entity ]( const auto & at ) {
      return reflect( at.key(), Storage::of( entity ) );
    } );
  }
  String keyText( const void * key ) const override {
    return briefText( *static_cast< const Key * >( key ) );
  }
  String canonicalKey( std::string_view text ) const override { return canonical< Key >( text ); }
};

// What those have alike that can be deleted from.
template< class C, auto storage > class ErasableType : public KeyedType< C, storage > {
protected:
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;
  using KeyedType< C, storage >::KeyedType;

public:
  bool memberDel( Entity & entity, std::string_view key ) const override {
    return Storage::of( entity ).del( entity, this->id, parseBriefly< Key >( key ) );
  }
  void reset( Entity & entity ) const override { Storage::of( entity ).delAll( entity, this->id ); }
};

inline constexpr AttributeKind setKind{ "set" };
// What reflection is told of a set, and so on for each kind of attribute.
template< class C, auto storage > class SetType : public ErasableType< C, storage > {
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;

public:
  SetType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : ErasableType< C, storage >( attrName, attrId, setKind, attrAccess, {} ) {}

  void memberIs( Entity & entity, std::string_view key, std::string_view value ) const override {
    const bool present = value.empty() || parseBriefly< bool >( value );
    Storage::of( entity ).is( entity, this->id, parseBriefly< Key >( key ), present );
  }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & ) const override {
    return { briefText( key ), {}, {} };
  }
};

inline constexpr AttributeKind mapKind{ "map" };
// A map.
template< class C, auto storage > class MapType : public ErasableType< C, storage > {
protected:
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;
  using Value = typename Storage::Type::Value;

  MapType( std::string_view attrName, AttrId attrId, AttributeKind attrKind, Access attrAccess )
      : ErasableType< C, storage >( attrName, attrId, attrKind, attrAccess,
                                    describedType< Value >() ) {}

public:
  MapType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : MapType( attrName, attrId, mapKind, attrAccess ) {}

  void memberIs( Entity & entity, std::string_view key, std::string_view value ) const override {
    const auto parsedKey = parseBriefly< Key >( key );
    Storage::of( entity ).is( entity, this->id, parsedKey, parseBriefly< Value >( value ) );
  }
  String canonicalValue( std::string_view text ) const override {
    return canonical< Value >( text );
  }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & all ) const override {
    return { briefText( key ), briefText( all.get( key ) ), {} };
  }
};

// A set or a map that is computed when it is asked for: `read` gives the view of its members, with
// a type Key, and Value for a map, size(), has( key ), get( key ) for a map, and range().
template< class C, auto read > class ComputedSetType : public KeyedType< C, read > {
  using typename KeyedType< C, read >::Storage;
  using typename KeyedType< C, read >::Key;

public:
  ComputedSetType( std::string_view attrName, AttrId attrId )
      : KeyedType< C, read >( attrName, attrId, setKind, Access::readOnly, {} ) {}
  bool computed() const override { return true; }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & ) const override {
    return { briefText( key ), {}, {} };
  }
};
// A map, likewise.
template< class C, auto read > class ComputedMapType : public KeyedType< C, read > {
  using typename KeyedType< C, read >::Storage;
  using typename KeyedType< C, read >::Key;
  using Value = typename Storage::Type::Value;

public:
  ComputedMapType( std::string_view attrName, AttrId attrId )
      : KeyedType< C, read >( attrName, attrId, mapKind, Access::readOnly,
                              describedType< Value >() ) {}
  bool computed() const override { return true; }
  String canonicalValue( std::string_view text ) const override {
    return canonical< Value >( text );
  }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & all ) const override {
    return { briefText( key ), briefText( all.get( key ) ), {} };
  }
};

inline constexpr AttributeKind counterKind{ "counter" };
// A map of counts.
template< class C, auto storage > class CounterType : public MapType< C, storage > {
public:
  CounterType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : MapType< C, storage >( attrName, attrId, counterKind, attrAccess ) {}
};

inline constexpr AttributeKind queueKind{ "queue" };
// A map whose members stand in the order in which they came.
template< class C, auto storage > class QueueType : public MapType< C, storage > {
public:
  QueueType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : MapType< C, storage >( attrName, attrId, queueKind, attrAccess ) {}
};

inline constexpr AttributeKind entitiesKind{ "entities" };
// A collection of entities that their owner owns.
template< class C, auto storage > class EntitiesType : public ErasableType< C, storage > {
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;

public:
  EntitiesType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : ErasableType< C, storage >( attrName, attrId, entitiesKind, attrAccess,
                                    Storage::Type::Type::vexTypeName() ) {}

  const EntityType * entityType() const override { return &Storage::Type::Type::vexType(); }
  void memberIs( Entity & entity, std::string_view key, std::string_view value ) const override {
    if ( !value.empty() ) {
      TextCursor( value ).fail( "no value: this makes the member" );
    }
    Storage::of( entity ).make( entity, this->id, parseBriefly< Key >( key ) );
  }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & all ) const override {
    return { briefText( key ), {}, all.get( key ) };
  }
};

// Entities that their owner keeps as records, to be read alone.
template< class C, auto storage > class ShownEntitiesType : public KeyedType< C, storage > {
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;

public:
  ShownEntitiesType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : KeyedType< C, storage >( attrName, attrId, entitiesKind, attrAccess,
                                 Storage::Type::Type::vexTypeName() ) {}

  const EntityType * entityType() const override { return &Storage::Type::Type::vexType(); }
  void reset( Entity & entity ) const override { Storage::of( entity ).delAll(); }

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & all ) const override {
    return { briefText( key ), {}, all.get( key ) };
  }
};

// The reactors that a machine has on members of an entity.
template< class C, auto storage > class ReactorsType : public KeyedType< C, storage > {
  using typename KeyedType< C, storage >::Storage;
  using typename KeyedType< C, storage >::Key;

public:
  ReactorsType( std::string_view attrName, AttrId attrId, Access attrAccess )
      : KeyedType< C, storage >( attrName, attrId, reactorsKind, attrAccess, {} ) {}

private:
  ReflectedMember reflect( const Key & key, const typename Storage::Type & ) const override {
    return { briefText( key ), {}, {} };
  }
};

} // namespace Vex
