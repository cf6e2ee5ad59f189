#include "report/ReportPage.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Agent {

extern const PageTemplate reportTemplate;

using Vex::String;

namespace {

constexpr size_t summaryLimit = 300;

// An entity of a table in one line: its values, and its collections as far as they fit.
struct Summary {
  String text;
  bool isCut = false;
};

Summary summaryOf( const Vex::Entity & entity ) {
  Summary summary;
  auto & text = summary.text;
  const auto add = [ & ]( const String & piece ) {
    if ( text.size() < summaryLimit ) {
      text += ( text.empty() ? "" : "; " ) + piece;
    } else {
      summary.isCut = true;
    }
  };
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    String name( attribute->name );
    if ( attribute->kind == Vex::referenceKind || attribute->kind == Vex::reactorsKind ) {
      continue;
    }
    if ( !attribute->keyed() ) {
      add( name + " " + attribute->value( entity ) );
      continue;
    }
    const auto size = attribute->size( entity );
    String members;
    size_t shown = 0;
    attribute->forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
      if ( text.size() + members.size() < summaryLimit ) {
        members += shown++ ? ", " : "";
        members += member.key;
        members += member.value.empty() ? "" : " = ";
        members += member.value;
      }
    } );
    if ( size > 0 ) {
      members += shown < size ? ", ..." : "";
      summary.isCut = summary.isCut || shown < size;
      name += " (";
      name += std::to_string( size );
      name += "): ";
      name += members;
      add( name );
    }
  }
  return summary;
}

} // namespace

ReportPage::ReportPage( std::ostream & out ) : Page( out, reportTemplate ) {}

void ReportPage::sources( const std::vector< Report::Source > & sources ) {
  arrayMember( "sources", [ & ] {
    for ( const auto & source : sources ) {
      object( [ & ] {
        member( "name", source.name );
        member( "before", source.before );
      } );
    }
  } );
}

void ReportPage::machines( const Roots & roots ) {
  const auto indexOf = [ & ]( const Vex::Entity * entity ) {
    return std::find_if(
               roots.begin(), roots.end(),
               [ & ]( const KezShell::Root & each ) { return each.entity.get() == entity; } ) -
           roots.begin();
  };
  // What stands between two roots is passed over.
  const auto addTargets = [ & ]( const Vex::Entity & entity, bool writes,
                                 std::vector< ptrdiff_t > & targets,
                                 const auto & addFurther ) -> void {
    for ( const auto * attribute : entity.fwkType().attributes() ) {
      if ( attribute->kind != Vex::referenceKind || attribute->writesTarget() != writes ) {
        continue;
      }
      const auto target = attribute->target( entity );
      const auto index = indexOf( target.get() );
      if ( index < roots.end() - roots.begin() ) {
        targets.push_back( index );
      } else if ( target ) {
        addFurther( *target, writes, targets, addFurther );
      }
    }
  };
  const auto references = [ & ]( const KezShell::Root & root, bool writes ) {
    std::vector< ptrdiff_t > targets;
    addTargets( *root.entity, writes, targets, addTargets );
    return targets;
  };
  arrayMember( "roots", [ & ] {
    for ( const auto & root : roots ) {
      object( [ & ] {
        member( "name", root.entity->name() );
        member( "type", String( root.entity->fwkType().name ) );
        member( "role", stringValue( root.role ) );
        member( "reads", references( root, false ) );
        member( "writes", references( root, true ) );
      } );
    }
  } );
}

void ReportPage::samples( const std::vector< Report::Column > & columns,
                          const std::vector< Report::Sample > & samples ) {
  arrayMember( "columns", [ & ] {
    for ( const auto & column : columns ) {
      object( [ & ] {
        member( "root", column.root );
        member( "name", column.attribute->name );
      } );
    }
  } );
  arrayMember( "samples", [ & ] {
    const std::vector< size_t > none( columns.size() );
    const auto * before = &none;
    for ( const auto & sample : samples ) {
      object( [ & ] {
        member( "step", sample.step );
        member( "time", sample.time );
        // Column and count of what is not as in the sample before.
        arrayMember( "counts", [ & ] {
          for ( size_t i = 0; i < columns.size(); ++i ) {
            if ( sample.counts[ i ] != ( *before )[ i ] ) {
              put( i );
              put( sample.counts[ i ] );
            }
          }
        } );
      } );
      before = &sample.counts;
    }
  } );
}

void ReportPage::histogram( std::string_view name, const Histogram & histogram ) {
  this->name( name );
  object( [ & ] {
    member( "origin", histogram.origin() );
    member( "width", histogram.width() );
    member( "bins", histogram.bins() );
  } );
}

// Column by column, which takes less room.
void ReportPage::events( const std::deque< Report::Event > & events ) {
  name( "events" );
  object( [ & ] {
    const auto column = [ & ]( std::string_view name, const auto & of ) {
      arrayMember( name, [ & ] {
        for ( const auto & event : events ) {
          put( of( event ) );
        }
      } );
    };
    column( "what", []( const auto & event ) { return static_cast< uint32_t >( event.what ); } );
    column( "step", []( const auto & event ) { return event.step; } );
    column( "time", []( const auto & event ) { return event.time; } );
    column( "text", []( const auto & event ) { return event.text; } );
  } );
}

void ReportPage::table( const Vex::Entity & root, const Vex::AttributeType & attribute ) {
  object( [ & ] {
    member( "root", root.name() );
    member( "name", attribute.name );
    member( "key", attribute.keyType );
    member( "value", attribute.valueType );
    member( "size", attribute.size( root ) );
    size_t cut = 0;
    arrayMember( "rows", [ & ] {
      size_t rows = 0;
      attribute.forEach( root, [ & ]( const Vex::ReflectedMember & member ) {
        if ( rows++ < Report::tableRowLimit ) {
          const auto summary =
              member.entity ? summaryOf( *member.entity ) : Summary{ member.value };
          cut += summary.isCut;
          put( std::array{ member.key, summary.text } );
        }
      } );
    } );
    member( "cut", cut );
  } );
}

void ReportPage::tables( const Roots & roots ) {
  arrayMember( "tables", [ & ] {
    for ( const auto & root : roots ) {
      if ( root.role != Role::output && root.role != Role::hardware ) {
        continue;
      }
      for ( const auto * attribute : root.entity->fwkType().attributes() ) {
        if ( attribute->isCollection() ) {
          table( *root.entity, *attribute );
        }
      }
    }
  } );
}

} // namespace Agent
