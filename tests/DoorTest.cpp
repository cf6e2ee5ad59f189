#include "shell/Door.h"
#include "Vex/Attributes.h"
#include "Vex/Clock.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DoorTesting {

class Shelf : public Vex::Entity {
  VEX_ENTITY( Shelf, "Test::Shelf" )
  VEX_MAP( 1, book, uint32_t, Vex::String )
  VEX_SET( 2, gap, uint32_t )
  VEX_ATTRIBUTES( book, gap )
};

} // namespace DoorTesting

namespace {

using DoorTesting::Shelf;
using KezShell::Rights;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class Library : public KezShell::Host {
public:
  Library() {
    roots_.rootIs( KezShell::Role::input, "shelf", shelf );
    roots_.rootIs( KezShell::Role::input, "kept", Vex::makePtr< Shelf >(), Vex::Access::readOnly );
  }
  const KezShell::Roots & roots() const override { return roots_; }

  const Vex::Ptr< Shelf > shelf = Vex::makePtr< Shelf >();

private:
  KezShell::Roots roots_;
};

class DoorTest : public testing::Test {
protected:
  // Someone at the other end, who writes and reads when told to.
  class Visitor {
  public:
    Visitor( DoorTest & test, Rights rights ) : test_( test ) {
      int ends[ 2 ];
      EXPECT_EQ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends ), 0 );
      own_ = Vex::Descriptor( ends[ 0 ] );
      test_.door.peerIs( Vex::Descriptor( ends[ 1 ] ), rights );
    }
    void write( const std::string & text ) {
      EXPECT_EQ( send( own_.number(), text.data(), text.size(), MSG_NOSIGNAL ),
                 static_cast< ssize_t >( text.size() ) );
    }
    // What comes until there is no more, or so many bytes.
    std::string read( size_t most = std::string::npos ) {
      std::string all;
      do {
        test_.serve();
        char some[ 4096 ];
        const auto got =
            recv( own_.number(), some, std::min( most - all.size(), sizeof( some ) ), 0 );
        if ( got <= 0 ) {
          left_ = got == 0;
          return all;
        }
        all.append( some, static_cast< size_t >( got ) );
      } while ( all.size() < most );
      return all;
    }
    std::string answer( const std::string & lines ) {
      write( lines + "\n" );
      return read();
    }
    bool wasLeft() const { return left_; }
    void finishWriting() { shutdown( own_.number(), SHUT_WR ); }

  private:
    DoorTest & test_;
    Vex::Descriptor own_;
    bool left_ = false;
  };

  static bool isReadable( int descriptor, int milliseconds ) {
    pollfd watched{ descriptor, POLLIN, 0 };
    return poll( &watched, 1, milliseconds ) > 0;
  }
  void serve() {
    while ( isReadable( door.descriptor(), 0 ) ) {
      door.serve();
    }
  }
  // More than the system keeps for a socket.
  void fill() {
    for ( uint32_t i = 0; i < books; ++i ) {
      library.shelf->bookIs( i, Vex::String( 100, 'x' ) );
    }
  }

  static constexpr uint32_t books = 20'000;
  Library library;
  KezShell::Shell shell{ library };
  KezShell::Door door{ shell, { 4, 1000, 0.05 } };
};

TEST_F( DoorTest, AnswersAreToldFromErrorsAndEndWithAStatus ) {
  Visitor visitor( *this, Rights::change );
  EXPECT_EQ( visitor.read(), ". ready\n" );
  EXPECT_EQ( visitor.answer( "set shelf.book[1] ..a\n\n# a remark\nshow shelf.book[1]" ),
             ". ok\n. ok\n. ok\nshelf.book[1] = ..a\n. ok\n" );
  EXPECT_EQ( visitor.answer( "expect shelf.book count 2" ),
             "! line 5: expectation failed: shelf.book\n!   expected  count 2\n"
             "!   found     count 1\n. failed\n" );
  EXPECT_EQ(
      visitor.answer( "del shelf.boo" ),
      "! line 6:11: expected an attribute of Test::Shelf (book, gap), found 'boo'\n. bad\n" );
  EXPECT_EQ( visitor.answer( "set kept.gap[1]" ),
             "! line 7:5: expected something that may be written; kept is read-only\n. bad\n" );
  // Answers whose own lines look like the door's.
  shell.commandIs( { "dots", "", "says dots", "", KezShell::Effect::none,
                     []( Vex::TextCursor &, KezShell::Session & session ) {
                       session.out() << ". ok\n! no\n.\n";
                     } } );
  EXPECT_EQ( visitor.answer( "dots" ), ".. ok\n!! no\n..\n. ok\n" );
  // Each has its own count, and goes without the others.
  Visitor other( *this, Rights::change );
  EXPECT_THAT( other.answer( "expect shelf.book count 1\nsho" ),
               StartsWith( ". ready\n. ok\n! line 2:1: expected a command (set, del" ) );
  EXPECT_EQ( visitor.answer( "quit" ), ". ok\n" );
  EXPECT_TRUE( visitor.wasLeft() );
  other.write( "expect shelf.book count 1" ); // without an end
  other.finishWriting();
  EXPECT_EQ( other.read(), ". ok\n" );
  EXPECT_TRUE( other.wasLeft() );
  EXPECT_EQ( door.peers(), 0u );
}

TEST_F( DoorTest, AnswersAreInJsonWhereThatIsWanted ) {
  const auto status = []( const std::string & how ) {
    return AllOf( HasSubstr( "{\"status\":\"" + how + "\",\"place\":\"line " ),
                  EndsWith( "}\n. " + how + "\n" ) );
  };
  library.shelf->bookIs( 7, "\"\\\x01 \xc3\xa9 \xff\xed\xa0\x80" );
  Visitor visitor( *this, Rights::look ), other( *this, Rights::change );
  visitor.read();
  EXPECT_THAT( visitor.answer( "--json show shelf.book" ),
               StartsWith( "{\"path\":\"shelf.book\",\"kind\":\"map\",\"keyType\":\"whole number\","
                           "\"valueType\":\"text\",\"size\":1}\n"
                           "{\"path\":\"shelf.book[7]\",\"key\":7,\"value\":\"\\\"\\\\\\u0001 "
                           "\xc3\xa9 \\ufffd\\ufffd\\ufffd\\ufffd\"}\n{\"status\"" ) );
  EXPECT_THAT( visitor.answer( "show shelf.gap" ), StartsWith( "shelf.gap (0)\n" ) );
  EXPECT_THAT( visitor.answer( "json on" ), AllOf( StartsWith( "{\"status" ), status( "ok" ) ) );
  EXPECT_EQ( visitor.answer( "\n# a remark" ), ". ok\n. ok\n" );
  EXPECT_THAT( visitor.answer( "set shelf.gap[1]" ),
               AllOf( StartsWith( "{\"error\":\"expected a command that changes nothing," ),
                      HasSubstr( "\"column\":1}\n" ), status( "bad" ) ) );
  EXPECT_THAT( visitor.answer( std::string( 2000, 'x' ) ),
               AllOf( StartsWith( "{\"error\":\"longer than 1000 bytes\"" ), status( "bad" ) ) );
  shell.commandIs( { "dots", "", "says dots", "", KezShell::Effect::none,
                     []( Vex::TextCursor &, KezShell::Session & session ) {
                       session.out() << ". ok\n" << 5;
                     } } );
  EXPECT_THAT( visitor.answer( "dots" ),
               AllOf( StartsWith( "{\"text\":\". ok\"}\n{\"text\":\"5\"}\n" ), status( "ok" ) ) );
  EXPECT_EQ( visitor.answer( "--text dots" ), ".. ok\n5\n. ok\n" );
  EXPECT_THAT( other.answer( "show shelf.gap" ), EndsWith( "shelf.gap (0)\n. ok\n" ) );

  // What ends a long answer is told between two values of it.
  fill();
  visitor.write( "show shelf.book\n" );
  visitor.read( 10'000 );
  shell.answersDel( "so" );
  EXPECT_THAT( visitor.read(),
               AllOf( HasSubstr( "\"}\n{\"failure\":\"the answer ends here: so\"}\n{\"status" ),
                      status( "failed" ) ) );
}

TEST_F( DoorTest, LongAnswersAreMadeAsTheyAreReadOverWhatStandsMeanwhile ) {
  fill();
  Visitor visitor( *this, Rights::look ), other( *this, Rights::change );
  EXPECT_EQ( visitor.read(), ". read-only\n" );
  visitor.write( "show shelf.book\nshow shelf.gap\n" );
  const auto begin = visitor.read( 10'000 );
  EXPECT_THAT( begin, StartsWith( "shelf.book (20000)\n  0 = xxx" ) );
  // The rest is not there yet: what goes is not shown, what comes was not there at first.
  EXPECT_EQ( other.answer( "del shelf.book[19998]\nset shelf.book[7] y\nset shelf.book[20001] z" ),
             ". ready\n. ok\n. ok\n. ok\n" );
  const auto rest = visitor.read();
  EXPECT_THAT( rest,
               AllOf( HasSubstr( "\n  19997 = x" ), Not( HasSubstr( "19998" ) ),
                      Not( HasSubstr( "20001" ) ), EndsWith( "x\n. ok\nshelf.gap (0)\n. ok\n" ) ) );
  // Entities that go meanwhile take nothing with them but the end of the answer.
  visitor.write( "show shelf\n" );
  visitor.read( 1000 );
  library.shelf->bookDelAll();
  EXPECT_THAT( visitor.read(), EndsWith( "x\n  gap (0)\n. ok\n" ) );
  // A host may end them.
  fill();
  visitor.write( "show shelf\n" );
  visitor.read( 1000 );
  shell.answersDel( "it closes" );
  EXPECT_THAT( visitor.read(),
               EndsWith( "\n! line 4: the answer ends here: it closes\n. failed\n" ) );
}

TEST_F( DoorTest, APeerThatReadsNothingIsCutOffAndHoldsUpNobody ) {
  fill();
  Visitor sleeper( *this, Rights::change ), idler( *this, Rights::change );
  sleeper.write( "show shelf\nshow shelf\nset shelf.gap[1]\n" );
  serve();
  EXPECT_EQ( idler.answer( "expect shelf.gap count 0" ), ". ready\n. ok\n" );
  while ( door.peers() == 2 ) {
    ASSERT_TRUE( isReadable( door.descriptor(), 10'000 ) );
    door.serve();
  }
  EXPECT_EQ( library.shelf->gaps(), 0u );
  EXPECT_THAT( sleeper.read(), EndsWith( "\n! cut off: nothing was read for 0.05 s\n" ) );
  EXPECT_TRUE( sleeper.wasLeft() );
  // Whoever has nothing to read is not slow.
  EXPECT_EQ( idler.answer( "expect shelf.gap count 0" ), ". ok\n" );
}

TEST_F( DoorTest, WatchesTellWhatChangesUntilAnotherLineComes ) {
  const auto isQuiet = [ & ] { return !isReadable( door.descriptor(), 0 ); };
  Vex::Clock::virtualIs( 3 );
  Visitor visitor( *this, Rights::look ), other( *this, Rights::look );
  visitor.read();
  other.read();
  library.shelf->bookIs( 1, "a" );
  EXPECT_EQ( visitor.answer( "watch shelf" ), "" );
  EXPECT_EQ( other.answer( "--json watch shelf.book[7]" ), "" );
  serve();
  EXPECT_TRUE( isQuiet() );
  library.shelf->bookIs( 7, "b" );
  library.shelf->bookIs( 7, "c" );
  library.shelf->bookDel( 7 );
  library.shelf->gapIs( 7 );
  EXPECT_FALSE( isQuiet() );
  const std::string time = "      3.000000  ";
  EXPECT_EQ( visitor.read(), time + "book[7] = b\n" + time + "book[7] = c\n" + time +
                                 "book[7] is gone\n" + time + "gap[7]\n" );
  const std::string before = "{\"time\":3,\"path\":\"shelf.book[7]\",\"there\":";
  EXPECT_EQ( other.read(), before + "true,\"value\":\"b\"}\n" + before + "true,\"value\":\"c\"}\n" +
                               before + "false}\n" );
  EXPECT_TRUE( isQuiet() );
  // Who does not keep up is told so, and gets what stands.
  for ( uint32_t i = 0; i < 1000; ++i ) {
    library.shelf->bookIs( i, "x" );
  }
  EXPECT_THAT( other.read(), EndsWith( "\"there\":true,\"value\":\"x\"}\n" ) );
  EXPECT_THAT( visitor.read(),
               AllOf( StartsWith( time + "book[0] = x\n" ),
                      HasSubstr( "book[255] = x\n" + time +
                                 "744 more changes, which were not kept; "
                                 "what stands now:\nshelf (Test::Shelf)\n  book (1000)\n" ),
                      EndsWith( "\n  gap (1)  7\n" ) ) );
  library.shelf->gapDel( 7 );
  EXPECT_EQ( visitor.read(), time + "gap[7] is gone\n" );
  // Lines end it, and so does leaving.
  EXPECT_EQ( visitor.answer( "expect shelf.gap count 0" ), ". ok\n. ok\n" );
  EXPECT_TRUE( library.shelf->vexWatched() );
  other.finishWriting();
  EXPECT_THAT(
      other.read(),
      EndsWith( "\"status\":\"ok\",\"place\":\"line 1\",\"line\":1,\"time\":3}\n. ok\n" ) );
  EXPECT_FALSE( library.shelf->vexWatched() );
  EXPECT_EQ( visitor.answer( "watch shelf\nwatch shelf.book[1]" ), ". ok\n" );
  shell.answersDel( "it closes" );
  EXPECT_EQ( visitor.read(), "! line 4: the answer ends here: it closes\n. failed\n" );
  EXPECT_FALSE( library.shelf->vexWatched() );
  Vex::Clock::steadyIs();
}

TEST_F( DoorTest, TooLongALineIsRefusedAndTheNextOneTaken ) {
  Visitor visitor( *this, Rights::change );
  visitor.read();
  const std::string refused = ": longer than 1000 bytes\n. bad\n";
  const std::string fits( "set shelf.book[1] " );
  EXPECT_EQ( visitor.answer( fits + std::string( 1000 - fits.size(), 'x' ) ), ". ok\n" );
  EXPECT_EQ( visitor.answer( std::string( 1001, 'x' ) + "\nexpect shelf.gap count 0" ),
             "! line 2" + refused + ". ok\n" );
  std::string said;
  for ( int i = 0; i < 100; ++i ) {
    visitor.write( std::string( 5'000, 'x' ) );
    said += visitor.read();
  }
  EXPECT_EQ( said, "! line 4" + refused );
  EXPECT_EQ( visitor.answer( "\nexpect shelf.gap count 0" ), ". ok\n" );
}

TEST_F( DoorTest, AReadOnlySessionIsRefusedEachCommandThatMayChangeSomething ) {
  KezShell::addAudit( shell );
  Visitor visitor( *this, Rights::look ), writer( *this, Rights::change );
  visitor.read();
  writer.read();
  size_t changing = 0;
  for ( const auto & command : shell.commands() ) {
    if ( command.name == "quit" || command.name == "exit" ) {
      continue; // would end the sessions that ask
    }
    const auto refusal = "! line " + std::to_string( 1 + &command - &shell.commands().front() ) +
                         ":1: expected a command that changes nothing, since this session is "
                         "read-only; " +
                         command.name + " may change something\n. bad\n";
    const auto answer = visitor.answer( command.name );
    EXPECT_EQ( answer == refusal, command.effect != KezShell::Effect::none ) << answer;
    EXPECT_THAT( writer.answer( command.name ), Not( HasSubstr( "read-only;" ) ) );
    changing += command.effect == KezShell::Effect::changes;
  }
  EXPECT_GE( changing, 5u );
  EXPECT_EQ( visitor.answer( "set shelf.gap[1]" ).substr( 0, 8 ), "! line 1" );
  EXPECT_EQ( library.shelf->gaps(), 0u );
}

TEST_F( DoorTest, ShowsSelectedMembersInOrderAndCountsThem ) {
  for ( const uint32_t key : { 100u, 9u, 11u, 10u, 21u } ) {
    library.shelf->bookIs( key, "x" );
    library.shelf->gapIs( key );
  }
  Visitor visitor( *this, Rights::look );
  visitor.read();
  EXPECT_EQ( visitor.answer( "show shelf.book[1*] sorted" ),
             "shelf.book (5)\n  10 = x\n  11 = x\n  100 = x\n. ok\n" );
  EXPECT_EQ( visitor.answer( "show shelf.gap[??] limit 2" ), "shelf.gap (5)  11  10\n. ok\n" );
  EXPECT_EQ( visitor.answer( "show shelf.gap count\nshow shelf.book[*1] count" ),
             "5\n. ok\n2\n. ok\n" );
  EXPECT_THAT( visitor.answer( "--json show shelf.book[?] limit 1" ),
               HasSubstr( "\"size\":5}\n{\"path\":\"shelf.book[9]\",\"key\":9," ) );
  EXPECT_EQ( visitor.answer( "show shelf.book limt 2" ),
             "! line 6:17: expected count, limit N, sorted or the end of the line, found "
             "'limt'\n. bad\n" );
  EXPECT_EQ( visitor.answer( "show shelf sorted" ),
             "! line 7:12: expected nothing more, since shelf is no collection\n. bad\n" );
  EXPECT_THAT( visitor.answer( "show shelf.bok[*]" ),
               StartsWith( "! line 8:12: expected an attribute of Test::Shelf" ) );
  fill();
  EXPECT_EQ( visitor.answer( "show shelf.book[*99] count" ), "200\n. ok\n" );
  EXPECT_THAT( visitor.answer( "show shelf.book sorted" ),
               HasSubstr( "expected a collection of no more than 10000 members" ) );
}

TEST_F( DoorTest, CompletesCommandsAndPathsByReflection ) {
  library.shelf->bookIs( 17, "x" );
  library.shelf->bookIs( 18, "y" );
  Visitor visitor( *this, Rights::look );
  visitor.read();
  EXPECT_EQ( visitor.answer( "complete exp" ),
             "ect \texpect\t[no] PATH [VALUE | count N]\nlain \texplain\t[SUBJECT]\n. ok\n" );
  EXPECT_EQ( visitor.answer( "complete expect no sh" ), "elf\tshelf\tinput, Test::Shelf\n. ok\n" );
  EXPECT_EQ( visitor.answer( "complete show shelf.b" ),
             "ook\tbook\tbook[whole number], map, text, writable\n. ok\n" );
  EXPECT_EQ( visitor.answer( "complete show shelf.book[1" ), "7]\t17\ttext\n8]\t18\ttext\n. ok\n" );
  EXPECT_EQ( visitor.answer( "complete show shelf.book[17" ), "]\t17\ttext\n. ok\n" );
}

// Names in the file system, each in a directory that goes with the test.
class DoorSocketTest : public DoorTest {
protected:
  DoorSocketTest() { std::filesystem::create_directory( directory ); }
  ~DoorSocketTest() override { std::filesystem::remove_all( directory ); }
  std::string refusal( KezShell::Door & at, const std::string & name ) {
    try {
      at.socketIs( name, Rights::change, 0600 );
      return "";
    } catch ( const std::runtime_error & error ) {
      return error.what();
    }
  }
  const std::string directory = testing::TempDir() + "door-test-" + std::to_string( getpid() );
  const std::string name = directory + "/control";
};

TEST_F( DoorSocketTest, ADeadNameIsTakenOverALivingOneAndAFileNever ) {
  const auto mode = [ & ] {
    return static_cast< unsigned >( std::filesystem::status( name ).permissions() );
  };
  const auto before = umask( 0077 );
  {
    KezShell::Door first( shell );
    EXPECT_EQ( refusal( first, name ), "" );
    EXPECT_EQ( mode(), 0600u );
    EXPECT_EQ( refusal( door, name ), "cannot listen at " + name + ": another process serves it" );
    std::filesystem::rename( name, name + ".kept" ); // as if its process had been killed
  }
  std::filesystem::rename( name + ".kept", name );
  door.socketIs( name, Rights::look, 0660 );
  EXPECT_EQ( mode(), 0660u );
  umask( before );
  // What another has made under the name since stays when this one goes.
  {
    KezShell::Door other( shell );
    EXPECT_EQ( refusal( other, directory + "/other" ), "" );
    std::filesystem::remove( directory + "/other" );
    std::ofstream( directory + "/other" ) << "a file";
  }
  EXPECT_THAT( refusal( door, directory + "/other" ), EndsWith( "which is no socket" ) );
  EXPECT_THAT( refusal( door, name + std::string( 200, 'x' ) ), HasSubstr( "expected a path of" ) );
  EXPECT_THAT( refusal( door, directory + "/none/x" ), EndsWith( "No such file or directory" ) );
}

} // namespace
