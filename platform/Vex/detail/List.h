// An intrusive list whose walks survive everything: while a walk runs, any element may leave or
// join, the one it stands on included, and the list itself may end. What joins during a walk is
// not visited by it. An element joins at the end.
#pragma once

#include "Vex/detail/Predicted.h"

namespace Vex::Detail {

template< class T > struct ListLink {
  T * prev = nullptr; // of the first element: the last
  T * next = nullptr;
};

// A walk under way; all of a thread stand in one chain.
struct ListCursor {
  ListCursor( const void * walked, void * first, void * final, ListCursor * around )
      : list( walked ), next( first ), last( final ), outer( around ) {}

  const void * list;
  void * next;
  void * last;
  ListCursor * outer;
};

// Reached in one load, as what every change and every walk looks at.
[[gnu::tls_model( "initial-exec" )]] extern constinit thread_local ListCursor * listCursors;

template< class T, ListLink< T > T::*link > class List {
public:
  List() = default;
  List( const List & ) = delete;
  List & operator=( const List & ) = delete;

  bool empty() const { return !first_; }
  T * first() const { return first_; }

  void append( T * element ) {
    ( element->*link ).next = nullptr;
    if ( !first_ ) {
      first_ = element;
      ( element->*link ).prev = element;
      return;
    }
    T * last = ( first_->*link ).prev;
    ( element->*link ).prev = last;
    ( last->*link ).next = element;
    ( first_->*link ).prev = element;
  }

  void remove( T * element ) {
    T * next = ( element->*link ).next;
    T * prev = ( element->*link ).prev;
    if ( listCursors ) [[unlikely]] {
      leaveWalks( element, next, prev );
    }
    if ( element == first_ ) {
      first_ = next;
    } else {
      ( prev->*link ).next = next;
    }
    if ( next ) {
      ( next->*link ).prev = prev;
    } else if ( first_ ) {
      ( first_->*link ).prev = prev;
    }
  }

  template< class Visit > [[gnu::always_inline]] void forEach( Visit && visit ) const {
    if ( first_ ) {
      forEachFrom( first_, visit );
    }
  }

private:
  template< class Visit > void forEachFrom( T * element, Visit & visit ) const {
    T * last = ( element->*link ).prev;
    if ( element != last ) {
      Cursor cursor( this, nullptr, last );
      do {
        T * const next = ( element->*link ).next;
        cursor.next = next;
        visit( *element );
        element = predicted( next, static_cast< T * >( cursor.next ) );
      } while ( element && element != cursor.last );
    }
    // After the last there is nothing that a change could take away.
    if ( element ) {
      visit( *element );
    }
  }
  void leaveWalks( T * element, T * next, T * prev ) const {
    for ( ListCursor * each = listCursors; each; each = each->outer ) {
      if ( each->list == this ) {
        if ( each->next == element ) {
          each->next = each->last == element ? nullptr : next;
        }
        if ( each->last == element ) {
          each->last = prev;
        }
      }
    }
  }

  struct Cursor : ListCursor {
    Cursor( const void * walked, void * first, void * final )
        : ListCursor( walked, first, final, listCursors ) {
      listCursors = this;
    }
    ~Cursor() { listCursors = outer; }
    Cursor( const Cursor & ) = delete;
    Cursor & operator=( const Cursor & ) = delete;
  };

  T * first_ = nullptr;
};

} // namespace Vex::Detail
