// How a line names something that an agent holds:
//
//   root[.attribute[[key]]]...        lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1]
//
// that is a root, an attribute without a key (a value, a reference, a whole collection) or a
// member of a collection. Keys may be in their brief or full text form. A reference leads on to
// the entity that it refers to. A path is checked against the classes of the entities as it is
// read, so that a path that stands can be told from one that cannot be; whether what it names is
// there is looked up each time that it is asked. A path may also end with the name of an operation
// of the entity before it, for which there is a call.
#pragma once

#include "shell/Line.h"
#include "shell/Roots.h"

namespace KezShell {

// What stands at a path. An entity has neither a value nor a count.
struct Reading {
  bool there = false; // a whole collection is there while it has members
  std::optional< Vex::String > value;
  std::optional< size_t > count; // of a whole collection
};

class Path {
public:
  // What a path ends with.
  enum class End { state, operation };

  // Reads a path and the blanks after it. Raises ParseError or BadLine.
  Path( const Roots & roots, Vex::TextCursor & in, End end = End::state );

  // Keys in their brief form.
  Vex::String text() const { return text( steps_.size() ); }
  // Of the entity that has the attribute which the path ends with.
  Vex::String holderText() const { return text( steps_.size() - 1 ); }
  const Root & root() const { return *root_; }
  // What the path ends with; null for a root.
  const Vex::AttributeType * attribute() const {
    return steps_.empty() ? nullptr : steps_.back().attribute;
  }
  const Vex::String & key() const { return *steps_.back().key; }
  // Of what follows the path's last character, from 1.
  size_t endColumn() const { return endOffset_ + 1; }
  bool hasKey() const { return !steps_.empty() && steps_.back().key; }
  // Whether it names something with a value: neither an entity nor a set's or whole collection.
  bool hasValue() const {
    return attribute() && !type_ && !namesCollection() && !attribute()->valueType.empty();
  }
  bool namesCollection() const { return attribute() && attribute()->keyed() && !hasKey(); }
  // The class of the entity that the path names; null when it names something else.
  const Vex::EntityType * type() const { return type_; }

  // Calls the operation which the path ends with on the entity before it; what that returned.
  // Raises BadLine, having called nothing, unless the entity is there and the rest of the line is
  // its arguments.
  Vex::String call( Vex::TextCursor & in ) const;

  // The entity that the path names, null while it is not there.
  Vex::Ptr< const Vex::Entity > entity() const { return walk( steps_.size() ); }
  // The entity that has the attribute which the path ends with.
  Vex::Ptr< const Vex::Entity > holder() const { return walk( steps_.size() - 1 ); }
  Reading read() const;

  // Whether what the path leads to may be written, as far as the way there decides it.
  bool writable() const;
  // Raises BadLine unless the attribute which the path ends with may be written.
  void checkWritable() const;
  // The holder of a path that may be written, null while it is not there.
  Vex::Ptr< Vex::Entity > writableHolder() const;
  // The same, made with all that is missing on the way to it.
  Vex::Ptr< Vex::Entity > holderIs() const;

private:
  struct Step {
    const Vex::AttributeType * attribute;
    std::optional< Vex::String > key; // brief
    size_t offset;                    // in the line
  };

  void readRoot( const Roots & roots, Vex::TextCursor & in );
  void readStep( Vex::TextCursor & in, End end );
  void readKey( Vex::TextCursor & in, Step & step ) const;
  Vex::String text( size_t steps ) const;
  Vex::Ptr< const Vex::Entity > walk( size_t steps ) const;

  size_t rootOffset_; // in the line
  size_t endOffset_ = 0;
  const Root * root_ = nullptr;
  std::vector< Step > steps_;
  const Vex::EntityType * type_ = nullptr;
  const Vex::OperationType * operation_ = nullptr;
};

} // namespace KezShell
