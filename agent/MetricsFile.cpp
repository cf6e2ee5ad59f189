#include "agent/MetricsFile.h"

#include "Vex/Clock.h"
#include "Vex/WholeFile.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace Agent {

MetricsFile::MetricsFile( const Shell & shell, const std::string & path, double interval,
                          std::ostream & err )
    : shell_( shell ), path_( path ), interval_( interval ), err_( err ) {
  put();
  written_ = Vex::Clock::steadyNow();
}

void MetricsFile::refresh() {
  if ( timeLeft() <= 0 ) {
    write();
  }
}

void MetricsFile::write() {
  try {
    put();
    failed_ = false;
  } catch ( const std::runtime_error & error ) {
    if ( !std::exchange( failed_, true ) ) {
      err_ << "--metrics: " << error.what() << std::endl;
    }
  }
  written_ = Vex::Clock::steadyNow();
}

double MetricsFile::timeLeft() const {
  return written_ + interval_ - Vex::Clock::steadyNow();
}

void MetricsFile::put() const {
  std::ostringstream text;
  shell_.metrics().write( text, KezShell::MetricForm::plainText );
  Vex::WholeFile file( path_ );
  file.write( text.view() );
  file.commit();
}

} // namespace Agent
