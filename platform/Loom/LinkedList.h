// A list through its own elements: T derives from LinkedList< T >::Link, stands in one list at
// most, and leaves it in constant time without knowing which it is. Nothing is allocated, and
// the list owns nothing.
#pragma once

#include <cstddef>

namespace Loom {

template< class T > class LinkedList {
public:
  // The neighbours, both in one cache line; null while the element stands in no list.
  struct alignas( 16 ) Link {
    Link * previous = nullptr;
    Link * next = nullptr;
  };

  LinkedList() : ends_{ &ends_, &ends_ } {}
  LinkedList( const LinkedList & ) = delete;
  LinkedList & operator=( const LinkedList & ) = delete;

  bool empty() const { return ends_.next == &ends_; }
  // Null without any.
  T * first() const { return empty() ? nullptr : static_cast< T * >( ends_.next ); }

  void append( Link & link ) {
    link.previous = ends_.previous;
    link.next = &ends_;
    ends_.previous->next = &link;
    ends_.previous = &link;
  }
  static void remove( Link & link ) {
    link.previous->next = link.next;
    link.next->previous = link.previous;
    link.next = nullptr;
  }

  // Counts one by one.
  size_t size() const {
    size_t count = 0;
    for ( const Link * link = ends_.next; link != &ends_; link = link->next ) {
      ++count;
    }
    return count;
  }

private:
  Link ends_;
};

} // namespace Loom
