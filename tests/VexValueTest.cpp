#include "VexTestTypes.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace VexTest;

const Stroke stroke( Point( 1, 2 ), Point( 4294967295, 65535 ), Colour::blue, 7 );
const std::string strokeInFull =
    "Value('VexTest::Stroke', ** {'from': Value('VexTest::Point', ** {'x': 1, 'y': 2}), "
    "'to': Value('VexTest::Point', ** {'x': 4294967295, 'y': 65535}), 'colour': blue, 'width': 7})";

TEST( VexValue, PrintsAndReadsItsFullAndBriefForms ) {
  EXPECT_EQ( valueToStrep( stroke ), strokeInFull );
  std::ostringstream stream;
  stream << stroke << Colour::green;
  EXPECT_EQ( stream.str(), strokeInFull + "green" );
  EXPECT_EQ( Vex::parse< Stroke >( strokeInFull ), stroke );
  EXPECT_EQ( Vex::briefText( stroke ), "(1,2),(4294967295,65535),blue,7" );
  for ( const auto & text : { Vex::briefText( stroke ), strokeInFull,
                              std::string( "(1, 2), (4294967295, 65535), 2, 7" ) } ) {
    EXPECT_EQ( Vex::parseBriefly< Stroke >( text ), stroke ) << text;
  }
  for ( size_t size = 0; size < strokeInFull.size(); ++size ) {
    EXPECT_THROW( Vex::parse< Stroke >( strokeInFull.substr( 0, size ) ), Vex::ParseError ) << size;
  }
}

TEST( VexValue, ErrorsNameTheFieldAndItsPlace ) {
  const struct {
    bool brief;
    std::string text, found, message;
  } cases[] = {
    // What stands at the place of the error.
    { false, "Value('VexTest::Line'", "VexTest::Line",
      "expected 'VexTest::Point', found 'VexTest:" },
    { false, "Value('VexTest::Point', ** {'z': 1, 'y': 2})", "z", "field 'x': expected 'x', " },
    { false, "Value('VexTest::Point', ** {'x': -1, 'y': 2})", "-1",
      "field 'x': expected a whole number of 32 bits, not negative, found '-1'" },
    { false, "Value('VexTest::Point', ** {'x': 1, 'y': 65536})", "65536",
      "field 'y': expected a whole number of 16 bits, not negative, found '65536'" },
    { false, "Value('VexTest::Point', ** {'x': 1z, 'y': 2})", "z", "field 'x': expected ', '', " },
    { false, "Value('VexTest::Point', ** {'x': 1, 'y': 2})!", "!",
      "expected nothing more, found '!'" },
    { true, "1", "", "field 'x': expected ',', found nothing" },
    { true, "1,y", "y", "field 'y': expected a whole number of 16 bits, not negative, found 'y'" },
    { true, "", "", "field 'x': expected a whole number of 32 bits, not negative, found nothing" },
  };
  for ( const auto & each : cases ) {
    try {
      each.brief ? Vex::parseBriefly< Point >( each.text ) : Vex::parse< Point >( each.text );
      ADD_FAILURE() << each.text << " was read";
    } catch ( const Vex::ParseError & error ) {
      EXPECT_EQ( std::string( error.what() ).substr( 0, each.message.size() ), each.message );
      EXPECT_EQ( each.text.compare( error.offset(), each.found.size(), each.found ), 0 )
          << each.text;
      EXPECT_EQ( error.offset() == each.text.size(), each.found.empty() ) << each.text;
    }
  }
  const std::pair< const char *, const char * > nested[] = { { "(1,2),(3,q),red,1", "to.y" },
                                                             { "(1,2,(3,4),red,1", "from" },
                                                             { "(1,2),(3,4),pink,1", "colour" },
                                                             { "(1,2),(3,4),red,", "width" } };
  for ( const auto & [ text, field ] : nested ) {
    try {
      Vex::parseBriefly< Stroke >( text );
      ADD_FAILURE() << text << " was read";
    } catch ( const Vex::ParseError & error ) {
      EXPECT_EQ( error.field(), field ) << error.what();
    }
  }
}

TEST( VexValue, EnumerationsReadNameOrNumber ) {
  EXPECT_EQ( Vex::parse< Colour >( "1" ), Colour::green );
  EXPECT_EQ( stringValue( static_cast< Colour >( 9 ) ), "9" );
  for ( const char * text : { "3", "Red", "", "greenish", "01" } ) {
    EXPECT_THROW( ColourInstance( text ), Vex::ParseError ) << text;
  }
}

template< class T > void expectForm( const std::string & text, const T & value ) {
  EXPECT_EQ( Vex::text( value ), text );
  EXPECT_EQ( Vex::parse< T >( text ), value ) << text;
}

TEST( VexText, PlainTypesPrintAndReadBack ) {
  expectForm( "0", uint8_t( 0 ) );
  expectForm( "-128", int8_t( -128 ) );
  expectForm( "18446744073709551615", UINT64_MAX );
  expectForm( "-9223372036854775808", INT64_MIN );
  expectForm( "5", 5.0 );
  expectForm( "0.1", 0.1 );
  expectForm( "-1.7976931348623157e+308", -1.7976931348623157e308 );
  expectForm( "1", true );
  EXPECT_FALSE( Vex::parse< bool >( "false" ) );
  expectForm( "a text, with {everything}", Vex::String( "a text, with {everything}" ) );
  expectForm( "none", std::optional< uint32_t >() );
  expectForm( "3", std::optional< uint32_t >( 3 ) );
  expectForm( "nonesuch", std::optional< Vex::String >( "nonesuch" ) );
  for ( const char * text : { "256", "-1", "", "1 ", " 1", "1x", "0x1", "+1" } ) {
    EXPECT_THROW( Vex::parse< uint8_t >( text ), Vex::ParseError ) << text;
    EXPECT_THROW( Vex::parse< bool >( text + std::string( "z" ) ), Vex::ParseError ) << text;
  }
}

TEST( VexText, NumbersAreReadAsTheyArePrinted ) {
  for ( const char * text : { "00", "07", "-0", "-07", "+7", "007" } ) {
    EXPECT_THROW( Vex::parse< int8_t >( text ), Vex::ParseError ) << text;
    EXPECT_THROW( Vex::parse< Point >( Vex::text( "Value('VexTest::Point', ** {'x': " ) + text +
                                       ", 'y': 2})" ),
                  Vex::ParseError )
        << text;
    EXPECT_THROW( Vex::parseBriefly< Point >( text + std::string( ",2" ) ), Vex::ParseError )
        << text;
  }
  for ( const char * text : { "1e999", "inf", "-inf", "nan", "infinity", "05", "-00.5", "" } ) {
    EXPECT_THROW( Vex::parse< double >( text ), Vex::ParseError ) << text;
  }
  const std::pair< const char *, double > others[] = { { "5.0", 5 },
                                                       { "0.50", 0.5 },
                                                       { "1e3", 1e3 } };
  for ( const auto & [ text, value ] : others ) {
    EXPECT_EQ( Vex::parse< double >( text ), value ) << text;
  }
  expectForm( "0", -0.0 );
}

TEST( VexText, ErrorsShowControlCharacters ) {
  using namespace std::string_literals;
  EXPECT_THAT( [] { Vex::parseBriefly< Point >( "1,\0two\x7f\n"s ); },
               testing::ThrowsMessage< Vex::ParseError >(
                   "field 'y': expected a whole number of 16 bits, not negative, found "
                   "'\\x00two\\x7f\\x0a'" ) );
  EXPECT_STREQ( Vex::RangeError( "a\0b"s ).what(), "a\\x00b" );
}

// The number 0 is a null pointer, and two literals are two texts.
static_assert( !std::is_constructible_v< Point, const char *, std::nullptr_t > );
static_assert( !std::is_constructible_v< Point, const char ( & )[ 4 ], const char ( & )[ 4 ] > );

TEST( VexValue, IsMadeFromAPairOfTextIteratorsAndNoOtherPair ) {
  EXPECT_EQ( Stroke( strokeInFull.begin(), strokeInFull.end() ), stroke );
  EXPECT_EQ( Stroke( strokeInFull.data(), strokeInFull.data() + strokeInFull.size() ), stroke );
}

} // namespace
