#include "shell/Metrics.h"

#include <algorithm>

namespace KezShell {

using Vex::String;

namespace {

std::string_view sampleSuffix( const MetricFamily & family ) {
  return family.type == MetricType::counter ? "_total" : "";
}

// As a label of a bucket has it.
String boundText( size_t bound ) {
  if ( bound == Vex::DurationHistogram::bounds.size() ) {
    return "+Inf";
  }
  const auto text = Vex::text( Vex::DurationHistogram::bounds[ bound ] );
  return text.find( '.' ) == text.npos ? text + ".0" : text;
}

void writeEscaped( std::ostream & out, std::string_view text ) {
  for ( const char c : text ) {
    if ( c == '\n' ) {
      out << "\\n";
    } else {
      out << ( c == '\\' || c == '"' ? "\\" : "" ) << c;
    }
  }
}

void writeLabels( std::ostream & out, const MetricLabels & labels ) {
  for ( const auto & label : labels ) {
    out << ( &label == &labels.front() ? '{' : ',' ) << label.name << "=\"";
    writeEscaped( out, label.value );
    out << '"';
  }
  out << ( labels.empty() ? "" : "}" );
}

} // namespace

void Metrics::put( const MetricFamily & family, const MetricLabels & labels,
                   const Vex::DurationHistogram & histogram ) {
  auto & samples = samplesOf( family );
  for ( size_t bound = 0; bound <= Vex::DurationHistogram::bounds.size(); ++bound ) {
    auto bucket = labels;
    bucket.push_back( { "le", boundText( bound ) } );
    samples.push_back( { "_bucket", std::move( bucket ), Vex::text( histogram.upTo( bound ) ) } );
  }
  samples.push_back( { "_count", labels, Vex::text( histogram.count() ) } );
  samples.push_back( { "_sum", labels, Vex::text( histogram.sum() ) } );
}

std::vector< Metrics::Sample > & Metrics::samplesOf( const MetricFamily & family ) {
  const auto at = std::find_if( families_.begin(), families_.end(), [ & ]( const auto & each ) {
    return each.about.name == family.name;
  } );
  return at == families_.end() ? families_.emplace_back( Family{ family, {} } ).samples
                               : at->samples;
}

void Metrics::write( std::ostream & out, MetricForm form ) const {
  const bool open = form == MetricForm::openMetrics;
  for ( const auto & [ about, samples ] : families_ ) {
    const auto suffix = sampleSuffix( about );
    const auto describe = [ &, &about = about ]( const char * what, std::string_view text ) {
      out << "# " << what << ' ' << about.name << ( open ? "" : suffix ) << ' ' << text << '\n';
    };
    describe( "TYPE", stringValue( about.type ) );
    if ( open && !about.unit.empty() ) {
      describe( "UNIT", about.unit );
    }
    describe( "HELP", about.help );
    for ( const auto & sample : samples ) {
      out << about.name << suffix << sample.suffix;
      writeLabels( out, sample.labels );
      out << ' ' << sample.value << '\n';
    }
  }
  out << ( open ? "# EOF\n" : "" );
}

void Metrics::writeInJson( Vex::JsonWriter & out ) const {
  for ( const auto & [ about, samples ] : families_ ) {
    for ( const auto & sample : samples ) {
      out.line( [ &, &about = about ] {
        String name( about.name );
        name += sampleSuffix( about );
        name += sample.suffix;
        out.member( "metric", name );
        out.member( "type", stringValue( about.type ) );
        out.name( "labels" );
        out.object( [ & ] {
          for ( const auto & label : sample.labels ) {
            out.member( label.name, label.value );
          }
        } );
        out.member( "value", sample.value, Vex::TextForm::number );
      } );
    }
  }
}

} // namespace KezShell
