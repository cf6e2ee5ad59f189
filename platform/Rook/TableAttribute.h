// A table as an attribute of an entity, which tells its watchers of the keys that change:
//
//   VEX_TABLE( id, foo, Record, keyField )
//
// gives it foo( key ), the record or none; fooIs( record ); fooCommit( record ), of one that was
// changed in place; fooDel( key ), fooDelAll(), fooHas( key ), foos() and foo(), a range to walk;
// fooMakeRoom(), whether there is room for one more record, made where it must be, and fooLack(),
// why there is none (a fooIs without room raises Rook::NoRoom, and nothing has changed then);
// fooNotify( key ), through which all of its notifications go, and how many those were; and
// fooTable(), the table itself. The entity's constructor mounts it, below the entity's name, by
// fooMount().
#pragma once

#include "Rook/Table.h"
#include "Vex/Attributes.h"

namespace Rook {

// An entity's table, and how often it told of changes.
template< auto keyField > class TableStorage : public Table< keyField > {
public:
  uint64_t notifications = 0;
};

inline constexpr Vex::AttributeKind tableKind{ "table" };

// What reflection is told of a table, which tells itself of its changes.
template< class C, auto storage > class TableType : public Vex::KeyedType< C, storage > {
  using typename Vex::KeyedType< C, storage >::Storage;
  using typename Vex::KeyedType< C, storage >::Key;
  using Record = typename Storage::Type::Record;

public:
  TableType( std::string_view attrName, Vex::AttrId attrId, Vex::Access attrAccess )
      : Vex::KeyedType< C, storage >( attrName, attrId, tableKind, attrAccess,
                                      Vex::typeName< Record >() ) {}

  std::optional< size_t > capacity( const Vex::Entity & entity ) const override {
    return Storage::of( entity ).capacity();
  }
  // As a walk meets them, whatever the index says.
  std::unique_ptr< Vex::ReflectedWalk > walk( const Vex::Entity & entity ) const override {
    return Vex::reflectedWalk( Storage::of( entity ).range(),
                               []( const auto & at ) { return reflected( *at ); } );
  }
  // The record's own key is to be `key`. Raises what Table::put does.
  void memberIs( Vex::Entity & entity, std::string_view key,
                 std::string_view value ) const override {
    const auto record = Vex::parseBriefly< Record >( value );
    if ( Storage::Type::keyOf( record ) != Vex::parseBriefly< Key >( key ) ) {
      Vex::TextCursor( value ).fail( "a record whose key is " + Vex::String( key ) );
    }
    Storage::of( entity ).put( record );
  }
  bool memberDel( Vex::Entity & entity, std::string_view key ) const override {
    return Storage::of( entity ).del( Vex::parseBriefly< Key >( key ) );
  }
  void reset( Vex::Entity & entity ) const override { Storage::of( entity ).delAll(); }
  Vex::String canonicalValue( std::string_view text ) const override {
    return Vex::canonical< Record >( text );
  }

private:
  static Vex::ReflectedMember reflected( const Record & record ) {
    return { Vex::briefText( Storage::Type::keyOf( record ) ), Vex::briefText( record ), {} };
  }
  Vex::ReflectedMember reflect( const Key & key,
                                const typename Storage::Type & all ) const override {
    return reflected( all.record( key ).value() );
  }
};

} // namespace Rook

#define VEX_TABLE( ID, foo, Record, keyField )                                                     \
  VEX_DECLARE( ID, foo, decltype( Record::keyField ), Rook::TableType, ( VexSelf::vexAccess ),     \
               Rook::TableStorage< &Record::keyField > foo##_ )                                    \
  std::optional< Record > foo( Vex::Arg< decltype( Record::keyField ) > key ) const {              \
    return foo##_.record( key );                                                                   \
  }                                                                                                \
  bool foo##Has( Vex::Arg< decltype( Record::keyField ) > key ) const {                            \
    return foo##_.has( key );                                                                      \
  }                                                                                                \
  size_t foo##s() const {                                                                          \
    return foo##_.size();                                                                          \
  }                                                                                                \
  auto foo() const {                                                                               \
    return foo##_.range();                                                                         \
  }                                                                                                \
  void foo##Is( const Record & record ) {                                                          \
    foo##_.put( record );                                                                          \
  }                                                                                                \
  [[nodiscard]] bool foo##MakeRoom() noexcept {                                                    \
    return foo##_.makeRoom();                                                                      \
  }                                                                                                \
  std::string_view foo##Lack() const {                                                             \
    return foo##_.lack();                                                                          \
  }                                                                                                \
  void foo##Commit( const Record & record ) {                                                      \
    foo##_.commit( record );                                                                       \
  }                                                                                                \
  void foo##Del( Vex::Arg< decltype( Record::keyField ) > key ) {                                  \
    foo##_.del( key );                                                                             \
  }                                                                                                \
  void foo##DelAll() {                                                                             \
    foo##_.delAll();                                                                               \
  }                                                                                                \
  void foo##Notify( Vex::Arg< decltype( Record::keyField ) > key ) {                               \
    ++foo##_.notifications;                                                                        \
    vexNotify( ID, &key );                                                                         \
  }                                                                                                \
  uint64_t foo##Notifications() const {                                                            \
    return foo##_.notifications;                                                                   \
  }                                                                                                \
  Rook::Table< &Record::keyField > & foo##Table() {                                                \
    return foo##_;                                                                                 \
  }                                                                                                \
  const Rook::Table< &Record::keyField > & foo##Table() const {                                    \
    return foo##_;                                                                                 \
  }                                                                                                \
  void foo##Mount() {                                                                              \
    const auto notify = [ this ]( const decltype( Record::keyField ) & key ) {                     \
      foo##Notify( key );                                                                          \
    };                                                                                             \
    foo##_.keyCallbacksIs( notify, notify );                                                       \
    foo##_.mount( name() + "/" #foo );                                                             \
  }
