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

template< auto keyField > class TableStorage : public Table< keyField > {
public:
  uint64_t notifications = 0;
};

} // namespace Rook

#define VEX_TABLE( ID, foo, Record, keyField )                                                     \
  VEX_DECLARE( ID, foo, decltype( Record::keyField ), TableType, ( VexSelf::vexAccess ),           \
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
  const Vex::String & foo##Lack() const {                                                          \
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
