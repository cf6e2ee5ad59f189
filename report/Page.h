// A page for a browser, in one file that refers to nothing else: a template with the data as JSON
// in it, which the template's script draws. Of a data's text nothing can be taken for markup.
//
// The build makes a template of what all pages have (page.html, with the style and the script) and
// of what is the page's own, NAME.html, NAME.css and NAME.js (`kez_page` in CMakeLists.txt).
#pragma once

#include "Vex/Json.h"

namespace Agent {

// In two pieces, around the data.
struct PageTemplate {
  std::string_view beforeData;
  std::string_view afterData;
};

class Page : public Vex::JsonWriter {
public:
  // What could end the script element that the data stand in, or begin markup in it, is guarded.
  Page( std::ostream & out, const PageTemplate & pageTemplate )
      : JsonWriter( out, "<>&" ), out_( out ), template_( pageTemplate ) {}

  // All of it, with what is put by then as the members of the data.
  template< class Members > void write( const Members & members ) {
    out_ << template_.beforeData;
    object( members );
    out_ << template_.afterData;
  }

private:
  std::ostream & out_;
  const PageTemplate & template_;
};

} // namespace Agent
