// kez-inspect table: shows the records of a shared table, whatever their type, by what its file
// says of their fields, and then how they change.
#pragma once

#include "Rook/TableFile.h"
#include "inspect/RecordText.h"

#include <optional>
#include <ostream>

namespace Inspect {

class TableView {
public:
  // Of the record with the key, in its brief form, or of all. Raises std::runtime_error when the
  // file is no table, or one that is damaged as a whole.
  TableView( const std::string & file, const std::optional< std::string > & key, bool json,
             std::ostream & out, std::ostream & err );

  // A line each. False when one is damaged, or the one asked for is not there.
  bool show();
  // Returns when the file has gone, or another one taken its place.
  void follow();

private:
  struct Shown {
    uint64_t version = 0;
    std::optional< std::string > key;
  };
  void update( uint32_t slot, uint64_t latestBirth, std::string_view verb );
  void sayRecord( std::string_view verb, const std::string & key, const std::byte * record );
  void sayRemoval( const std::string & key );
  void forEachSlot( std::string_view verb );

  const Rook::TableFile table_;
  const RecordText text_;
  const std::optional< std::string > key_;
  const bool isJson_;
  std::ostream & out_;
  std::ostream & err_;
  Vex::JsonWriter json_{ out_ };
  std::vector< uint64_t > record_;
  std::vector< Shown > shown_; // by slot
  bool whole_ = true;
};

} // namespace Inspect
