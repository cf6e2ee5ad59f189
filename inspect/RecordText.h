// The text forms of a table's records, from what its file says of their fields.
#pragma once

#include "Vex/Json.h"

#include <cstddef>
#include <vector>

namespace Inspect {

class RecordText {
public:
  // Raises Vex::ParseError when `fields` is not what Rook::fieldsOf writes.
  explicit RecordText( std::string_view fields );

  // As the value type prints: "Value('Kez::Thing', ** {'key': 5, ...})".
  void append( Vex::TextBuffer & out, const std::byte * record ) const;
  // As an object of its fields.
  void put( Vex::JsonWriter & out, const std::byte * record ) const { put( out, record_, record ); }
  // In its brief form, and how that reads.
  void appendKey( Vex::TextBuffer & out, const std::byte * record ) const;
  Vex::TextForm keyForm() const { return key_.form; }

private:
  struct Field {
    Vex::String name;
    Vex::String type;
    size_t offset = 0;
    void ( *append )( Vex::TextBuffer & out, const std::byte * field ) = nullptr;
    Vex::TextForm form = Vex::TextForm::words;
    std::vector< Field > fields; // where there is no `append`
  };
  static void parseFields( Vex::TextCursor & in, Field & value );
  static void put( Vex::JsonWriter & out, const Field & value, const std::byte * record );
  static void appendFull( Vex::TextBuffer & out, const Field & value, const std::byte * record );
  static void appendBrief( Vex::TextBuffer & out, const Field & value, const std::byte * record );

  Field record_;
  Field key_;
};

} // namespace Inspect
