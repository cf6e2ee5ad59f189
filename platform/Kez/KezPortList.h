// An ordered list of ports: interface ids, each once, in their order. Up to four are kept in
// the list itself, so that the usual one is copied without an allocation. Text form: the names,
// separated by commas; an empty list prints as nothing.
#pragma once

#include "Wire/IntfId.h"

#include <array>
#include <vector>

namespace Kez {

class KezPortList {
public:
  using VexRelocatable = std::true_type; // the few by value, a vector's elements elsewhere

  void portIs( Wire::IntfId intfId, bool present );
  void portDel( Wire::IntfId intfId );
  bool portHas( Wire::IntfId intfId ) const;
  size_t ports() const { return size_; }

  const Wire::IntfId * begin() const { return size_ > few_.size() ? many_.data() : few_.data(); }
  const Wire::IntfId * end() const { return begin() + size_; }

  static constexpr std::string_view vexTypeName() { return "Kez::KezPortList"; }
  friend bool operator==( const KezPortList & a, const KezPortList & b );

private:
  uint32_t size_ = 0;
  std::array< Wire::IntfId, 4 > few_; // the ports while they fit
  std::vector< Wire::IntfId > many_;  // else all of them
};

void appendText( Vex::TextBuffer & out, const KezPortList & ports );
void parseText( Vex::TextCursor & in, KezPortList & ports );
std::ostream & operator<<( std::ostream & out, const KezPortList & ports );

} // namespace Kez
