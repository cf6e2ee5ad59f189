// Intrusive reference counting.
//
// PtrInterface is the count, Ptr the handle. An object is born with count 1, which its factory
// adopts (makePtr), and dies with count 1, so that a Ptr to `this` may be taken while the object
// is built or destroyed; none may outlive it. Counts are atomic only while the process-wide
// thread-safe mode is on; switch it before other threads share objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Vex {

namespace Detail {
// As wide as the counts: a load of another width between two changes of a count costs more than
// the test that it is for.
extern uint32_t threadSafePtrs;
} // namespace Detail

inline bool threadSafePtrs() {
  return Detail::threadSafePtrs != 0;
}
void threadSafePtrsIs( bool on );

// An object that counts the references to it, and goes with the last.
class PtrInterface {
public:
  PtrInterface() = default;
  PtrInterface( const PtrInterface & ) = delete;
  PtrInterface & operator=( const PtrInterface & ) = delete;

  void refInc() const {
    if ( threadSafePtrs() ) [[unlikely]] {
      __atomic_fetch_add( &refs_, 1, __ATOMIC_RELAXED );
    } else {
      ++refs_;
    }
  }

  void refDec() const {
    if ( threadSafePtrs() ) [[unlikely]] {
      refDecAtomically();
      return;
    }
    const uint32_t left = refs_ - 1;
    refs_ = left;
    if ( left == 0 ) [[unlikely]] {
      lastReferenceGone();
    }
  }

  uint32_t refs() const { return __atomic_load_n( &refs_, __ATOMIC_RELAXED ); }

protected:
  virtual ~PtrInterface() = default;

  // The last reference has gone, but for the one that this call holds; the default destroys the
  // object.
  virtual void zeroReferences() const { delete this; }

private:
  void refDecAtomically() const;
  void lastReferenceGone() const;

  mutable uint32_t refs_ = 1;
};

template< class T > class Ptr {
public:
  using VexRelocatable = std::true_type; // the count stands with the object

  constexpr Ptr() = default;
  constexpr Ptr( std::nullptr_t ) {}
  Ptr( T * object ) : object_( object ) { inc(); }
  Ptr( const Ptr & other ) : object_( other.object_ ) { inc(); }
  Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
  template< class U >
    requires std::is_convertible_v< U *, T * > Ptr( const Ptr< U > & other )
        : object_( other.get() ) {
      inc();
    }
    template< class U >
      requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > && other )
    noexcept : object_( other.release() ) {}
    ~Ptr() {
      if ( object_ ) {
        object_->refDec();
      }
    }

    Ptr & operator=( Ptr other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
    }

    // Takes over the reference that a new object is born with.
    static Ptr adopt( T * object ) {
      Ptr ptr;
      ptr.object_ = object;
      return ptr;
    }

    T * get() const {
      return object_;
    }
    T * release() {
      return std::exchange( object_, nullptr );
    }
    T * operator->() const {
      return object_;
    }
    T & operator*() const {
      return *object_;
    }
    explicit operator bool() const {
      return object_ != nullptr;
    }

    template< class U > friend bool operator==( const Ptr & a, const Ptr< U > & b ) {
      return a.get() == b.get();
    }
    friend bool operator==( const Ptr & a, std::nullptr_t ) {
      return !a.object_;
    }

  private:
    void inc() const {
      if ( object_ ) {
        object_->refInc();
      }
    }

    T * object_ = nullptr;
};

template< class T, class... Args > Ptr< T > makePtr( Args &&... args ) {
  return Ptr< T >::adopt( new T( std::forward< Args >( args )... ) );
}

// Null when the object is of another class.
template< class T, class U > Ptr< T > dynamicCast( const Ptr< U > & ptr ) {
  return Ptr< T >( dynamic_cast< T * >( ptr.get() ) );
}

} // namespace Vex
