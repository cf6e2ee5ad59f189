// Reflection: what a class's attributes are and how to read, write and delete them through
// text forms, and what operations it has and how to call them. Nothing is kept per instance. Keys
// and values are taken and given in their brief text form; the full one is taken too. Bad text
// raises ParseError or RangeError and changes nothing; an operation that the attribute's kind does
// not have raises NotSupported. A storage in a file may raise std::runtime_error besides: memberIs
// when it has no room, having changed nothing, member and walks when it is damaged.
#pragma once

#include "Vex/Ptr.h"
#include "Vex/Reactor.h"
#include "Vex/Text.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace Vex {

class Entity;
class EntityType;

// A kind of attributes, known by its name. The set is open: each stands with the class that
// describes it, and storages of other floors have kinds of their own.
class AttributeKind {
public:
  explicit constexpr AttributeKind( std::string_view name ) : name_( name ) {}
  friend constexpr bool operator==( AttributeKind a, AttributeKind b ) = default;
  friend constexpr std::string_view text( AttributeKind kind ) { return kind.name_; }

private:
  std::string_view name_;
};

inline constexpr AttributeKind referenceKind{ "reference" };
inline constexpr AttributeKind reactorsKind{ "reactors" };

enum class Access { writable, readOnly };

class NotSupported : public std::logic_error {
public:
  using std::logic_error::logic_error;
};

// A member of a collection as reflection shows it: `entity` for a collection of entities,
// `value` (empty for a set) otherwise.
struct ReflectedMember {
  String key;
  String value;
  Ptr< const Entity > entity;
};

// One pass over the members of a keyed attribute, which begins with the first `next` and may be
// left off between two for as long as whoever walks holds the entity. Members come as walks of the
// collection give them.
class ReflectedWalk {
public:
  virtual ~ReflectedWalk() = default;
  // None at the end, after which it is not to be asked again.
  virtual std::optional< ReflectedMember > next() = 0;
};

// How the text of a type's values reads.
enum class TextForm { words, number, truth };

// The type of keys or values, as reflection tells of it.
struct DescribedType {
  constexpr DescribedType( std::string_view typeName = {}, TextForm textForm = TextForm::words )
      : name( typeName ), form( textForm ) {}
  std::string_view name;
  TextForm form;
};

// What is known of an attribute, and a door to it by the texts of its keys and values.
class AttributeType {
public:
  AttributeType( std::string_view attrName, AttrId attrId, AttributeKind attrKind,
                 Access attrAccess, DescribedType keys, DescribedType values )
      : name( attrName ), id( attrId ), kind( attrKind ), access( attrAccess ),
        keyType( keys.name ), valueType( values.name ), keyForm( keys.form ),
        valueForm( values.form ) {}
  AttributeType( const AttributeType & ) = delete;
  AttributeType & operator=( const AttributeType & ) = delete;
  virtual ~AttributeType() = default;

  const std::string_view name;
  const AttrId id;
  const AttributeKind kind;
  const Access access;
  const std::string_view keyType;   // empty without keys
  const std::string_view valueType; // empty for a set; the class for entities and references
  const TextForm keyForm;
  const TextForm valueForm;

  bool keyed() const { return !keyType.empty(); }
  // Whether it has members that belong to an entity's state.
  bool isCollection() const { return keyed() && kind != reactorsKind; }
  // Whether nothing is kept for it.
  virtual bool computed() const { return false; }

  // The class declared for the entities that it holds or refers to, whether there are any or not;
  // null when it does neither.
  virtual const EntityType * entityType() const { return nullptr; }

  // Attributes without keys.
  virtual String value( const Entity & ) const { unsupported( "read" ); }
  virtual void valueIs( Entity &, std::string_view ) const { unsupported( "set" ); }
  virtual Ptr< const Entity > target( const Entity & ) const { unsupported( "followed" ); }
  // Whether it is a reference through which the entity writes, not one to read alone.
  virtual bool writesTarget() const { return false; }

  // Keyed attributes. A key that is not there reads as none.
  virtual size_t size( const Entity & ) const { unsupported( "counted" ); }
  // Members for which there is memory already; none where it is made as they come.
  virtual std::optional< size_t > capacity( const Entity & ) const { return std::nullopt; }
  virtual std::optional< ReflectedMember > member( const Entity &, std::string_view ) const {
    unsupported( "looked up by key" );
  }
  virtual std::unique_ptr< ReflectedWalk > walk( const Entity & ) const { unsupported( "walked" ); }
  void forEach( const Entity & entity,
                const std::function< void( const ReflectedMember & ) > & visit ) const;
  // `value` is empty for a set and for entities, whose member is made.
  virtual void memberIs( Entity &, std::string_view, std::string_view ) const {
    unsupported( "set by key" );
  }
  // Whether there was such a member.
  virtual bool memberDel( Entity &, std::string_view ) const { unsupported( "deleted by key" ); }

  // Empties a collection, sets a value back to what it was declared with.
  virtual void reset( Entity & ) const { unsupported( "deleted" ); }

  // The text of a key that a notification points to.
  virtual String keyText( const void * ) const { unsupported( "looked up by key" ); }
  // What `text` reads as when it is printed again.
  virtual String canonicalKey( std::string_view ) const { unsupported( "looked up by key" ); }
  virtual String canonicalValue( std::string_view ) const { unsupported( "compared" ); }

protected:
  [[noreturn]] void unsupported( const char * operation ) const;
};

// What an operation takes.
struct Parameter {
  std::string_view name;
  std::string_view type;
};

// Something that entities of a class do when they are told to; see Vex/Operation.h.
class OperationType {
public:
  explicit OperationType( std::string_view operationName ) : name( operationName ) {}
  OperationType( const OperationType & ) = delete;
  OperationType & operator=( const OperationType & ) = delete;
  virtual ~OperationType() = default;

  const std::string_view name;
  const std::vector< Parameter > & parameters() const { return parameters_; }

  // Reads the arguments, in their brief form and with blanks between them, up to the end; the last
  // is missing where its type reads nothing as a value. What is returned, in its brief form. Raises
  // ParseError, and RangeError, which name the argument, and does nothing then.
  virtual String call( Entity & entity, TextCursor & arguments ) const = 0;

protected:
  std::vector< Parameter > parameters_;
};
using Operations = std::vector< std::shared_ptr< const OperationType > >;
Operations joined( Operations base, const Operations & own );

// What is known of a class of entities: its name, its attributes and operations.
class EntityType {
public:
  // The base's attributes come first. `operations` outlive the type.
  EntityType( std::string_view name, const EntityType * base, const Operations & operations,
              std::initializer_list< const AttributeType * > own );

  const std::string_view name;
  const Operations & operations() const { return operations_; }
  const OperationType * operation( std::string_view name ) const;
  const std::vector< const AttributeType * > & attributes() const { return attributes_; }
  const AttributeType * attribute( std::string_view name ) const;
  const AttributeType * attribute( AttrId id ) const;

private:
  const Operations & operations_;
  std::vector< const AttributeType * > attributes_;
};

} // namespace Vex
