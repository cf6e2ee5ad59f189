// What keeps files that a process writes its own, through each kind of them.
#include "Vex/OwnFile.h"

#include "Ringlog/Ring.h"
#include "Ringlog/RingFormat.h"
#include "Rook/TableFile.h"
#include "RookTestTypes.h"
#include "Vex/WholeFile.h"
#include "record/RecordFile.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

struct Kind {
  const char * name;
  std::function< void( const std::string & path ) > write;
  friend void PrintTo( const Kind & kind, std::ostream * out ) { *out << kind.name; }
};

const Kind kinds[] = {
  { "table",
    []( const std::string & path ) {
      Rook::TableFile::write( path, { 16, "a record" } );
    } },
  { "ring",
    []( const std::string & path ) {
      Ringlog::ringIs( path, Ringlog::smallestRing );
      Ringlog::ringDel();
    } },
  { "page", []( const std::string & path ) { Vex::WholeFile( path ).commit(); } },
  { "record", []( const std::string & path ) { Agent::RecordFile{ path }; } },
};

class OwnFileTest : public testing::TestWithParam< Kind > {
protected:
  OwnFileTest() { fs::create_directories( directory_ ); }
  ~OwnFileTest() override {
    Vex::fileModeIs( 0644 );
    fs::remove_all( directory_ );
  }

  static std::string refusal( const std::string & path ) {
    try {
      GetParam().write( path );
    } catch ( const std::runtime_error & error ) {
      return error.what();
    }
    return "";
  }

  const fs::path directory_ =
      fs::temp_directory_path() / ( "kez-own-file-" + std::to_string( getpid() ) );
  const std::string path_ = directory_ / "file";
};

TEST_P( OwnFileTest, ModeIsWhatWasSetWhateverTheMask ) {
  for ( const mode_t mode : { 0644, 0600, 0664 } ) {
    Vex::fileModeIs( mode );
    const auto mask = umask( 077 );
    GetParam().write( path_ );
    umask( mask );
    struct stat status {};
    ASSERT_EQ( stat( path_.c_str(), &status ), 0 );
    EXPECT_EQ( status.st_mode & 07777, mode );
    fs::remove( path_ );
  }
}

TEST_P( OwnFileTest, LinksAreNotFollowed ) {
  const auto elsewhere = directory_ / "elsewhere";
  for ( const bool there : { false, true } ) {
    if ( there ) {
      std::ofstream( elsewhere ) << "";
    }
    fs::create_symlink( elsewhere, path_ );
    EXPECT_NE( refusal( path_ ), "" );
    EXPECT_TRUE( fs::is_symlink( path_ ) );
    EXPECT_EQ( fs::exists( elsewhere ), there );
    EXPECT_TRUE( !there || fs::file_size( elsewhere ) == 0 );
    fs::remove( path_ );
  }
}

TEST_P( OwnFileTest, AnotherUsersFileIsLeftAlone ) {
  if ( geteuid() != 0 ) {
    GTEST_SKIP() << "only root can give files away";
  }
  GetParam().write( path_ );
  constexpr uid_t other = 12345;
  ASSERT_EQ( chown( path_.c_str(), other, other ), 0 );
  EXPECT_NE( refusal( path_ ), "" );
  struct stat status {};
  ASSERT_EQ( stat( path_.c_str(), &status ), 0 );
  EXPECT_EQ( status.st_uid, other );
}

INSTANTIATE_TEST_SUITE_P( Kinds, OwnFileTest, testing::ValuesIn( kinds ),
                          []( const auto & each ) { return each.param.name; } );

} // namespace
