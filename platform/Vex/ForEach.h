// VEX_FOR_EACH( macro, a, b, ... ): macro( a ), macro( b ), ... separated by commas.
#pragma once

#define VEX_PARENS ()
#define VEX_EXPAND( ... ) VEX_EXPAND3( VEX_EXPAND3( VEX_EXPAND3( VEX_EXPAND3( __VA_ARGS__ ) ) ) )
#define VEX_EXPAND3( ... ) VEX_EXPAND2( VEX_EXPAND2( VEX_EXPAND2( VEX_EXPAND2( __VA_ARGS__ ) ) ) )
#define VEX_EXPAND2( ... ) VEX_EXPAND1( VEX_EXPAND1( VEX_EXPAND1( VEX_EXPAND1( __VA_ARGS__ ) ) ) )
#define VEX_EXPAND1( ... ) __VA_ARGS__
#define VEX_FOR_EACH( macro, ... )                                                                 \
  __VA_OPT__( VEX_EXPAND( VEX_FOR_EACH_STEP( macro, __VA_ARGS__ ) ) )
#define VEX_FOR_EACH_STEP( macro, first, ... )                                                     \
  macro( first ) __VA_OPT__(, VEX_FOR_EACH_AGAIN VEX_PARENS( macro, __VA_ARGS__ ) )
#define VEX_FOR_EACH_AGAIN() VEX_FOR_EACH_STEP
