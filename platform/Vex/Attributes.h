// The accessor macros: one line declares an attribute `foo` of an entity class and gives it the
// accessors that the whole system uses.
//
//   class EvpnRemoteInfo : public Vex::Entity {
//     VEX_ENTITY( EvpnRemoteInfo, "Kez::EvpnRemoteInfo" )
//     VEX_COUNTER( 1, remoteTunnelId, Tunnel::TunnelTable::TunnelId )
//     VEX_ATTRIBUTES( remoteTunnelId )
//   };
//
//   VEX_ENTITY( Class, "name"[, Base] )  opens the list; Base when it is not Vex::Entity
//   VEX_KEY( Class, foo, Key )           what a member entity is constructed with and named by
//   VEX_ATTRIBUTE( id, foo, T[, init] )  foo(), fooIs( value ), fooDel() (back to init)
//   VEX_TUNABLE( id, foo, T, init )      the same, and reflection may write it in any class;
//                                        T of either may be a domain, see Vex/Domain.h
//   VEX_HANDLED_TUNABLE( id, foo, T, init )
//                                        likewise; the class writes `void fooChanged()`, which runs
//                                        when it has changed
//   VEX_COMPUTED( id, foo, T )           declares `T foo() const`, which reflection reads
//   VEX_SET( id, foo, Key )              foo( key ): bool, fooIs( key, present = true )
//   VEX_NOTED_SET( id, foo, Key, N )     the same, and fooNote( key ): where the class keeps an N,
//                                        which reflection does not show, beside the member
//   VEX_MAP( id, foo, Key, Value )       foo( key ), fooIs( key, value )
//   VEX_COMPUTED_SET( id, foo, View )    declares `View foo() const`, see Vex/Describe.h; the class
//                                        says vexNotify( fooAttr, &key ) when it changes
//   VEX_COMPUTED_MAP( id, foo, View )    likewise, and foo( key )
//   VEX_COUNTER( id, foo, Key )          foo( key ), fooIs( key, count ), fooInc, fooDec( key, n )
//   VEX_QUEUE( id, foo, T )              a map by index, fooEnq( value ), fooDeq(), fooMetadata()
//   VEX_ENTITIES( id, foo, T )           foo( key ), fooIs( key ) makes, fooIs( Ptr ) puts back
//   VEX_SHOWN_ENTITIES( id, foo, Shown ) foo( key ), an entity that Shown, a Vex::ShownEntities,
//   makes
//                                        to show what it has under the key; the class changes foo_
//   VEX_INPUT( id, foo, T )              foo(): Ptr< const T >, set by the constructor through foo_
//   VEX_OUTPUT( id, foo, T )             foo(): Ptr< T >, likewise
//   VEX_PART( id, foo, T )               foo(): Ptr< T >, fooIs( Ptr ) puts another in its place
//   VEX_REACTORS( id, foo, Reactor )     foo( key ), fooIs( entity )
//   VEX_OWN_REACTORS( id, foo, Reactor ) foo( key ); the class writes fooIs, fooDel and fooDelAll
//   VEX_ATTRIBUTES( foo, ... )           closes the list, naming every attribute of the class
//   VEX_OPERATIONS( VEX_OPERATION( foo, parameter, ... ), ... )
//                                        what reflection may call beside, see Vex/Operation.h
//
// Member entities that stand only while they hold something are taken from by
// fooMemberDel( key, member ), for those with one collection, which deletes the entity with its
// last member, and by fooDelIfEmpty( key ) after any other change, for those with any; both say
// whether it went.
//
// Every collection also has foo() (a range to walk), fooHas( key ), fooDel( key ), fooDelAll()
// and foos() (the count), and each attribute its id `fooAttr`, whose key( pointer ) types what
// onAttribute is given. A machine's reactors `foo` follow an input's entities `bar` by a
// Vex::MirrorReactor< Input::barEntities, fooReactors >. Ids are 0 to 63, unique along a class's
// bases.
#pragma once

#include "Vex/Checked.h"
#include "Vex/Declared.h"
#include "Vex/Describe.h"
#include "Vex/ForEach.h"
#include "Vex/Operation.h"
#include "Vex/Storage.h"

#include <concepts>

namespace Vex {

// An attribute's id, which tells the type of the keys that reactors are handed.
template< class Key > struct AttrRef {
  AttrId id;
  constexpr operator AttrId() const { return id; }
  static const Key & key( const void * key ) { return *static_cast< const Key * >( key ); }
};
// Of an attribute without keys.
template<> struct AttrRef< void > {
  AttrId id;
  constexpr operator AttrId() const { return id; }
};

template< class... Each > constexpr size_t countOf( Each... ) {
  return sizeof...( Each );
}

} // namespace Vex

#define VEX_ENTITY( Class, typeName, ... )                                                         \
public:                                                                                            \
  using VexSelf = Class;                                                                           \
  using VexBase = typename Vex::EntityBase< __VA_ARGS__ >::type;                                   \
  static constexpr std::string_view vexTypeName() {                                                \
    return typeName;                                                                               \
  }                                                                                                \
  const Vex::EntityType & fwkType() const override {                                               \
    static_assert( std::is_same_v< VexClosed, VexSelf >,                                           \
                   "VEX_ATTRIBUTES closes the list that VEX_ENTITY opens" );                       \
    return vexType();                                                                              \
  }                                                                                                \
  static void vexDeclared( Vex::NoAttr );                                                          \
  static constexpr int vexDepth = VexBase::vexDepth + 1;                                           \
  template< std::derived_from< Class > T >                                                         \
  friend void vexMark( const T *, std::integral_constant< int, vexDepth > ) {}

#define VEX_TYPE_FUNCTION( name ) &VexSelf::vexTypeOf_##name
#define VEX_TYPE_ADDRESS( name ) &vexTypeOf_##name()
#define VEX_ATTRIBUTES( ... )                                                                      \
public:                                                                                            \
  using VexClosed = VexSelf;                                                                       \
  [[gnu::cold]] static const Vex::EntityType & vexType() {                                         \
    static_assert( Vex::declaredAttributes< VexSelf >() ==                                         \
                       Vex::countOf( VEX_FOR_EACH( VEX_TYPE_FUNCTION, __VA_ARGS__ ) ),             \
                   "VEX_ATTRIBUTES names every attribute of the class, and no id stands in "       \
                   "a base" );                                                                     \
    static_assert( Vex::namesItsBase< VexSelf >(), "VEX_ENTITY names the class's base" );          \
    static const Vex::EntityType type( vexTypeName(), &VexBase::vexType(),                         \
                                       VexSelf::vexOperations(),                                   \
                                       { VEX_FOR_EACH( VEX_TYPE_ADDRESS, __VA_ARGS__ ) } );        \
    return type;                                                                                   \
  }

#define VEX_KEY( Class, foo, Key )                                                                 \
public:                                                                                            \
  VEX_CHECK_KEY( Class, Key )                                                                      \
  using FwkKey = Vex::CheckedKey< Key >;                                                           \
  explicit Class( Vex::Arg< Key > key ) : foo##_( key ) {}                                         \
  Vex::Arg< Key > foo() const {                                                                    \
    return foo##_;                                                                                 \
  }                                                                                                \
  Vex::Arg< Key > fwkKey() const {                                                                 \
    return foo##_;                                                                                 \
  }                                                                                                \
                                                                                                   \
private:                                                                                           \
  void vexAppendKey( Vex::TextBuffer & out ) const override {                                      \
    Vex::appendBriefText( out, foo##_ );                                                           \
  }                                                                                                \
  const FwkKey foo##_;                                                                             \
                                                                                                   \
public:

#define VEX_UNPACK( ... ) __VA_ARGS__

// What every attribute has: its id, the mark that it is declared, its description, its storage.
#define VEX_DECLARE( ID, foo, Key, Description, arguments, ... )                                   \
public:                                                                                            \
  [[maybe_unused]] static constexpr Vex::AttrRef< Key > foo##Attr{ ID };                           \
  static void vexDeclared( Vex::AttrTag< ID > );                                                   \
  static constexpr auto vexStorage( Vex::AttrTag< ID > ) {                                         \
    return &VexSelf::foo##_;                                                                       \
  }                                                                                                \
  [[gnu::cold]] static const Vex::AttributeType & vexTypeOf_##foo() {                              \
    static const Description< VexSelf, &VexSelf::foo##_ > type( #foo, ID, VEX_UNPACK arguments );  \
    return type;                                                                                   \
  }                                                                                                \
                                                                                                   \
private:                                                                                           \
  __VA_ARGS__;                                                                                     \
                                                                                                   \
public:

#define VEX_ATTRIBUTE_ACCESS( ID, foo, T, access, whenChanged, ... )                               \
  VEX_DECLARE( ID, foo, void, Vex::ValueType, ( access, &VexSelf::foo##Is, &VexSelf::foo##Del ),   \
               Vex::ValueStorage< T > foo##_{ __VA_ARGS__ } )                                      \
  Vex::Arg< Vex::HeldBy< T > > foo() const {                                                       \
    return foo##_.get();                                                                           \
  }                                                                                                \
  void foo##Is( Vex::Arg< Vex::HeldBy< T > > value ) {                                             \
    if ( foo##_.set( *this, ID, value ) ) {                                                        \
      whenChanged;                                                                                 \
    }                                                                                              \
  }                                                                                                \
  void foo##Del() {                                                                                \
    foo##Is( Vex::ValueStorage< T >{ __VA_ARGS__ }.get() );                                        \
  }

#define VEX_ATTRIBUTE( ID, foo, T, ... )                                                           \
  VEX_CHECK_VALUE( foo, T )                                                                        \
  VEX_ATTRIBUTE_ACCESS( ID, foo, Vex::CheckedValue< T >, VexSelf::vexAccess,                       \
                        static_cast< void >( 0 ) __VA_OPT__(, ) __VA_ARGS__ )
#define VEX_TUNABLE( ID, foo, T, ... )                                                             \
  VEX_CHECK_VALUE( foo, T )                                                                        \
  VEX_ATTRIBUTE_ACCESS( ID, foo, Vex::CheckedValue< T >, Vex::Access::writable,                    \
                        static_cast< void >( 0 ) __VA_OPT__(, ) __VA_ARGS__ )
#define VEX_HANDLED_TUNABLE( ID, foo, T, ... )                                                     \
  VEX_CHECK_VALUE( foo, T )                                                                        \
  VEX_ATTRIBUTE_ACCESS( ID, foo, Vex::CheckedValue< T >, Vex::Access::writable,                    \
                        this->foo##Changed() __VA_OPT__(, ) __VA_ARGS__ )

#define VEX_COMPUTED( ID, foo, T )                                                                 \
public:                                                                                            \
  static void vexDeclared( Vex::AttrTag< ID > );                                                   \
  [[gnu::cold]] static const Vex::AttributeType & vexTypeOf_##foo() {                              \
    static const Vex::ComputedType< VexSelf, T > type( #foo, ID, &VexSelf::foo );                  \
    return type;                                                                                   \
  }                                                                                                \
  T foo() const;

#define VEX_COLLECTION_ACCESSORS( ID, foo, Key )                                                   \
  bool foo##Has( Vex::Arg< Key > key ) const {                                                     \
    return foo##_.has( key );                                                                      \
  }                                                                                                \
  void foo##Del( Vex::Arg< Key > key ) {                                                           \
    foo##_.del( *this, ID, key );                                                                  \
  }                                                                                                \
  void foo##DelAll() {                                                                             \
    foo##_.delAll( *this, ID );                                                                    \
  }                                                                                                \
  size_t foo##s() const {                                                                          \
    return foo##_.size();                                                                          \
  }                                                                                                \
  auto foo() const {                                                                               \
    return foo##_.range();                                                                         \
  }

#define VEX_SET( ID, foo, Key )                                                                    \
  VEX_CHECK_KEY( foo, Key )                                                                        \
  VEX_DECLARE( ID, foo, Key, Vex::SetType, ( VexSelf::vexAccess ),                                 \
               Vex::SetStorage< Vex::CheckedKey< Key > > foo##_ )                                  \
  VEX_COLLECTION_ACCESSORS( ID, foo, Key )                                                         \
  bool foo( Vex::Arg< Key > key ) const {                                                          \
    return foo##_.has( key );                                                                      \
  }                                                                                                \
  void foo##Is( Vex::Arg< Key > key, bool present = true ) {                                       \
    foo##_.is( *this, ID, key, present );                                                          \
  }

#define VEX_NOTED_SET( ID, foo, Key, N )                                                           \
  VEX_CHECK_KEY( foo, Key )                                                                        \
  VEX_DECLARE( ID, foo, Key, Vex::SetType, ( VexSelf::vexAccess ),                                 \
               Vex::NotedSetStorage< Vex::CheckedKey< Key >, N > foo##_ )                          \
  VEX_COLLECTION_ACCESSORS( ID, foo, Key )                                                         \
  void foo##Is( Vex::Arg< Key > key, bool present = true ) {                                       \
    foo##_.is( *this, ID, key, present );                                                          \
  }                                                                                                \
  N * foo##Note( Vex::Arg< Key > key ) {                                                           \
    return foo##_.note( key );                                                                     \
  }                                                                                                \
  const N * foo##Note( Vex::Arg< Key > key ) const {                                               \
    return foo##_.note( key );                                                                     \
  }

#define VEX_COMPUTED_COLLECTION( ID, foo, View, Description )                                      \
public:                                                                                            \
  [[maybe_unused]] static constexpr Vex::AttrRef< View::Key > foo##Attr{ ID };                     \
  static void vexDeclared( Vex::AttrTag< ID > );                                                   \
  [[gnu::cold]] static const Vex::AttributeType & vexTypeOf_##foo() {                              \
    static const Description< VexSelf,                                                             \
                              static_cast< View ( VexSelf::* )() const >( &VexSelf::foo ) >        \
        type( #foo, ID );                                                                          \
    return type;                                                                                   \
  }                                                                                                \
  View foo() const;                                                                                \
  bool foo##Has( Vex::Arg< View::Key > key ) const {                                               \
    return foo().has( key );                                                                       \
  }                                                                                                \
  size_t foo##s() const {                                                                          \
    return foo().size();                                                                           \
  }
#define VEX_COMPUTED_SET( ID, foo, View )                                                          \
  VEX_COMPUTED_COLLECTION( ID, foo, View, Vex::ComputedSetType )
#define VEX_COMPUTED_MAP( ID, foo, View )                                                          \
  VEX_COMPUTED_COLLECTION( ID, foo, View, Vex::ComputedMapType )                                   \
  View::Value foo( Vex::Arg< View::Key > key ) const {                                             \
    return foo().get( key );                                                                       \
  }

#define VEX_MAP_ACCESSORS( ID, foo, Key, Value )                                                   \
  VEX_COLLECTION_ACCESSORS( ID, foo, Key )                                                         \
  Vex::Arg< Value > foo( Vex::Arg< Key > key ) const {                                             \
    return foo##_.get( key );                                                                      \
  }                                                                                                \
  void foo##Is( Vex::Arg< Key > key, Vex::Arg< Value > value ) {                                   \
    foo##_.is( *this, ID, key, value );                                                            \
  }

#define VEX_MAP( ID, foo, Key, Value )                                                             \
  VEX_CHECK_KEY( foo, Key )                                                                        \
  VEX_CHECK_VALUE( foo, Value )                                                                    \
  VEX_DECLARE( ID, foo, Key, Vex::MapType, ( VexSelf::vexAccess ),                                 \
               Vex::MapStorage< Vex::CheckedKey< Key >, Vex::CheckedValue< Value > > foo##_ )      \
  VEX_MAP_ACCESSORS( ID, foo, Key, Value )

#define VEX_COUNTER( ID, foo, Key )                                                                \
  VEX_CHECK_KEY( foo, Key )                                                                        \
  VEX_DECLARE( ID, foo, Key, Vex::CounterType, ( VexSelf::vexAccess ),                             \
               Vex::CounterStorage< Vex::CheckedKey< Key > > foo##_ )                              \
  VEX_MAP_ACCESSORS( ID, foo, Key, uint32_t )                                                      \
  uint32_t foo##Inc( Vex::Arg< Key > key, uint32_t n = 1 ) {                                       \
    return foo##_.change( *this, ID, key, n );                                                     \
  }                                                                                                \
  uint32_t foo##Dec( Vex::Arg< Key > key, uint32_t n = 1 ) {                                       \
    return foo##_.change( *this, ID, key, 0u - n );                                                \
  }

#define VEX_QUEUE( ID, foo, T )                                                                    \
  VEX_CHECK_VALUE( foo, T )                                                                        \
  VEX_DECLARE( ID, foo, uint32_t, Vex::QueueType, ( VexSelf::vexAccess ),                          \
               Vex::QueueStorage< Vex::CheckedValue< T > > foo##_ )                                \
  VEX_MAP_ACCESSORS( ID, foo, uint32_t, T )                                                        \
  void foo##Del( const Vex::Collection< uint32_t, T >::Walk & at ) {                               \
    foo##Del( at.key() );                                                                          \
  }                                                                                                \
  void foo##Enq( Vex::Arg< T > value ) {                                                           \
    foo##_.enq( *this, ID, value );                                                                \
  }                                                                                                \
  T foo##Deq() {                                                                                   \
    return foo##_.deq( *this, ID );                                                                \
  }                                                                                                \
  const Vex::QueueMetadata & foo##Metadata() const {                                               \
    return foo##_.metadata();                                                                      \
  }                                                                                                \
  void foo##MetadataIs( const Vex::QueueMetadata & metadata ) {                                    \
    foo##_.metadataIs( metadata );                                                                 \
  }

#define VEX_ENTITIES( ID, foo, T )                                                                 \
  VEX_DECLARE( ID, foo, T::FwkKey, Vex::EntitiesType, ( VexSelf::vexAccess ),                      \
               Vex::EntityStorage< T > foo##_ )                                                    \
  VEX_COLLECTION_ACCESSORS( ID, foo, T::FwkKey )                                                   \
  Vex::Ptr< const T > foo( Vex::Arg< T::FwkKey > key ) const {                                     \
    return foo##_.get( key );                                                                      \
  }                                                                                                \
  Vex::Ptr< T > foo( Vex::Arg< T::FwkKey > key ) {                                                 \
    return foo##_.get( key );                                                                      \
  }                                                                                                \
  Vex::Ptr< T > foo##Is( Vex::Arg< T::FwkKey > key ) {                                             \
    return foo##_.make( *this, ID, key );                                                          \
  }                                                                                                \
  auto foo() {                                                                                     \
    return foo##_.range();                                                                         \
  }                                                                                                \
  void foo##Is( const Vex::Ptr< T > & member ) {                                                   \
    foo##_.put( *this, ID, member );                                                               \
  }                                                                                                \
  template< class Of = T >                                                                         \
  bool foo##MemberDel( Vex::Arg< T::FwkKey > key, Vex::Arg< Vex::OnlyKeyOf< Of > > member ) {      \
    return foo##_.memberDel( *this, ID, key, member );                                             \
  }                                                                                                \
  template< class Of = T >                                                                         \
    requires( Vex::collectionCount< Of >() > 0 )                                                   \
  bool foo##DelIfEmpty( Vex::Arg< T::FwkKey > key ) {                                              \
    return foo##_.delIfEmpty( *this, ID, key );                                                    \
  }                                                                                                \
  struct foo##Entities {                                                                           \
    using Owner = VexSelf;                                                                         \
    static constexpr Vex::AttrRef< T::FwkKey > id{ ID };                                           \
    static const Vex::EntityStorage< T > & of( const Owner & owner ) { return owner.foo##_; }      \
  };

#define VEX_SHOWN_ENTITIES( ID, foo, Shown )                                                       \
  VEX_DECLARE( ID, foo, Shown::Key, Vex::ShownEntitiesType, ( Vex::Access::readOnly ),             \
               Shown foo##_{ *this, ID } )                                                         \
  bool foo##Has( Vex::Arg< Shown::Key > key ) const {                                              \
    return foo##_.has( key );                                                                      \
  }                                                                                                \
  size_t foo##s() const {                                                                          \
    return foo##_.size();                                                                          \
  }                                                                                                \
  auto foo() const {                                                                               \
    return foo##_.range();                                                                         \
  }                                                                                                \
  Vex::Ptr< const Shown::Type > foo( Vex::Arg< Shown::Key > key ) const {                          \
    return foo##_.get( key );                                                                      \
  }

#define VEX_REFERENCE( ID, foo, T )                                                                \
  VEX_DECLARE( ID, foo, void, Vex::ReferenceType, ( Vex::Access::readOnly ),                       \
               Vex::Ptr< T > foo##_ )                                                              \
  const Vex::Ptr< T > & foo() const {                                                              \
    return foo##_;                                                                                 \
  }
#define VEX_PART( ID, foo, T )                                                                     \
  VEX_REFERENCE( ID, foo, T )                                                                      \
  void foo##Is( const Vex::Ptr< T > & part ) {                                                     \
    if ( foo##_ != part ) {                                                                        \
      foo##_ = part;                                                                               \
      vexNotify( ID, nullptr );                                                                    \
    }                                                                                              \
  }
#define VEX_INPUT( ID, foo, T ) VEX_REFERENCE( ID, foo, const T )
#define VEX_OUTPUT( ID, foo, T ) VEX_REFERENCE( ID, foo, T )

#define VEX_OWN_REACTORS( ID, foo, R )                                                             \
  VEX_DECLARE( ID, foo, R::Key, Vex::ReactorsType, ( Vex::Access::readOnly ),                      \
               Vex::ReactorStorage< R > foo##_ )                                                   \
  R * foo( Vex::Arg< R::Key > key ) const {                                                        \
    return foo##_.get( key );                                                                      \
  }                                                                                                \
  bool foo##Has( Vex::Arg< R::Key > key ) const {                                                  \
    return foo##_.has( key );                                                                      \
  }                                                                                                \
  auto foo() const {                                                                               \
    return foo##_.range();                                                                         \
  }                                                                                                \
  size_t foo##s() const {                                                                          \
    return foo##_.size();                                                                          \
  }                                                                                                \
  struct foo##Reactors {                                                                           \
    using Sm = VexSelf;                                                                            \
    static Vex::ReactorStorage< R > & of( Sm & sm ) { return sm.foo##_; }                          \
    static void is( Sm & sm, const Vex::Ptr< const R::NotifierType > & entity ) {                  \
      sm.foo##Is( entity );                                                                        \
    }                                                                                              \
    static void del( Sm & sm, Vex::Arg< R::Key > key ) { sm.foo##Del( key ); }                     \
  };

#define VEX_REACTORS( ID, foo, R )                                                                 \
  VEX_OWN_REACTORS( ID, foo, R )                                                                   \
  void foo##Is( const Vex::Ptr< const R::NotifierType > & entity ) {                               \
    foo##_.make( *this, entity );                                                                  \
  }                                                                                                \
  void foo##Del( Vex::Arg< R::Key > key ) {                                                        \
    foo##_.del( *this, key );                                                                      \
  }                                                                                                \
  void foo##DelAll() {                                                                             \
    foo##_.delAll( *this );                                                                        \
  }
