// Operations that reflection calls by text, beside the attributes of a class:
//
//   VEX_OPERATIONS( VEX_OPERATION( publishEvpnLagMemberInfo, lagIntfId, portList ),
//                   VEX_OPERATION( scheduleNow ) )
//
// Each names a function of the class that changes something and is not overloaded, and its
// parameters. It may be called with any arguments at any time between two events, so that an
// operator may. Blanks, spaces or tabs, stand between the arguments, and may before and after them;
// a text is the last of them, and takes all that is left.
#pragma once

#include "Vex/Describe.h"
#include "Vex/ForEach.h"

namespace Vex {

namespace Detail {

inline bool skipBlanks( TextCursor & in ) {
  bool skipped = false;
  while ( in.skip( " " ) || in.skip( "\t" ) ) {
    skipped = true;
  }
  return skipped;
}

// None but the last may be missing.
template< class T >
void parseArgument( TextCursor & in, const Parameter & parameter, bool last, T & value ) {
  try {
    if ( in.done() && !last ) {
      in.fail( String( parameter.type ) );
    }
    parseBriefText( in, value );
    if ( !skipBlanks( in ) && !in.done() && !last ) {
      in.fail( "a blank" );
    }
  } catch ( ParseError & error ) {
    error.inArgument( parameter.name );
    throw;
  } catch ( const RangeError & error ) {
    throw RangeError( "argument '" + String( parameter.name ) + "': " + error.what() );
  }
}

template< class... Arguments > constexpr bool onlyTheLastIsText() {
  [[maybe_unused]] size_t left = sizeof...( Arguments );
  return ( (--left == 0 || !std::is_same_v< std::remove_cvref_t< Arguments >, String >)&&... );
}

template< class C, class Result, class... Arguments > class Operation : public OperationType {
  static_assert( onlyTheLastIsText< Arguments... >() );

public:
  Operation( std::string_view operationName, Result ( C::*function )( Arguments... ),
             std::convertible_to< std::string_view > auto... names )
      : OperationType( operationName ), function_( function ) {
    ( parameters_.push_back( { names, typeName< std::remove_cvref_t< Arguments > >() } ), ... );
  }

  String call( Entity & entity, TextCursor & in ) const override {
    skipBlanks( in );
    std::tuple< std::remove_cvref_t< Arguments >... > values;
    std::apply(
        [ & ]( auto &... value ) {
          [[maybe_unused]] size_t i = 0;
          ( ( parseArgument( in, parameters_[ i ], i + 1 == parameters_.size(), value ), ++i ),
            ... );
        },
        values );
    expectEnd( in );
    const auto invoke = [ & ]( const auto &... value ) -> Result {
      return ( static_cast< C & >( entity ).*function_ )( value... );
    };
    if constexpr ( std::is_void_v< Result > ) {
      std::apply( invoke, values );
      return {};
    } else {
      return briefText( std::apply( invoke, values ) );
    }
  }

private:
  Result ( C::*const function_ )( Arguments... );
};

} // namespace Detail

template< class C, class Result, class... Arguments, std::same_as< std::string_view >... Names >
  requires( sizeof...( Names ) == sizeof...( Arguments ) )
std::shared_ptr< const OperationType >
operation( std::string_view name, Result ( C::*function )( Arguments... ), Names... names ) {
  using Type = Detail::Operation< C, Result, Arguments... >;
  return std::make_shared< Type >( name, function, names... );
}

} // namespace Vex

#define VEX_PARAMETER_NAME( name ) std::string_view( #name )
#define VEX_OPERATION( foo, ... )                                                                  \
  Vex::operation( #foo,                                                                            \
                  &VexSelf::foo __VA_OPT__(, VEX_FOR_EACH( VEX_PARAMETER_NAME, __VA_ARGS__ ) ) )
#define VEX_OPERATIONS( ... )                                                                      \
public:                                                                                            \
  static const Vex::Operations & vexOperations() {                                                 \
    static const auto all = Vex::joined( VexBase::vexOperations(), { __VA_ARGS__ } );              \
    return all;                                                                                    \
  }
