// A list through its own elements: T derives from LinkedList< T >::Link, stands in one list at
// most, and leaves it in constant time without knowing which it is. Nothing is allocated, and
// the list owns nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

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
  T * last() const { return empty() ? nullptr : static_cast< T * >( ends_.previous ); }

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

  // Counts one by one, no further than `limit`; from both ends, so that two elements at a time
  // are fetched from memory.
  size_t size( size_t limit = SIZE_MAX ) const {
    const Link * front = ends_.next;
    const Link * back = ends_.previous;
    size_t count = empty() ? 0 : 1;
    while ( front != back && count < limit ) {
      front = front->next;
      count += front != back ? 2 : 1;
      back = front != back ? back->previous : back;
    }
    return std::min( count, limit );
  }

  // Equal elements keep their order. O( n log n ), O( n ) if they are in order already.
  template< class Before > void sort( const Before & before ) {
    if ( empty() ) {
      return;
    }
    Link * rest = ends_.next;
    const Run all = takeSorted( rest, size(), before );
    all.last->next = &ends_;
    Link * previous = &ends_;
    ends_.next = all.first;
    for ( Link * link = all.first; link != &ends_; link = link->next ) {
      link->previous = previous;
      previous = link;
    }
    ends_.previous = previous;
  }

private:
  // Linked by `next` alone.
  struct Run {
    Link * first;
    Link * last;
  };

  template< class Before >
  static Run takeSorted( Link *& rest, size_t count, const Before & before ) {
    if ( count == 1 ) {
      Link * one = rest;
      rest = rest->next;
      return { one, one };
    }
    const Run front = takeSorted( rest, count / 2, before );
    const Run back = takeSorted( rest, count - count / 2, before );
    return merged( front, back, [ & ]( const Link * a, const Link * b ) {
      return before( static_cast< const T & >( *a ), static_cast< const T & >( *b ) );
    } );
  }

  template< class Before > static Run merged( Run front, Run back, const Before & before ) {
    if ( !before( back.first, front.last ) ) {
      front.last->next = back.first;
      return { front.first, back.last };
    }
    front.last->next = back.last->next = nullptr;
    Link head;
    Link * last = &head;
    while ( front.first && back.first ) {
      Link *& least = before( back.first, front.first ) ? back.first : front.first;
      last->next = least;
      last = least;
      least = least->next;
    }
    last->next = front.first ? front.first : back.first;
    return { head.next, front.first ? front.last : back.last };
  }

  Link ends_;
};

} // namespace Loom
