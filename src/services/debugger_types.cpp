// What the library's most used classes look like, for debuggers. A compiler describes a class that has
// virtual functions only beside those, so without this a program with debug information knows nothing of the
// strings that it holds. Nothing but this unit is compiled with debug information in a release
// (CMakeLists.txt), so it names what is worth that: see tools/gdb.
#include <kelstdmt/xany.h>
#include <kelstdmt/xdictionary.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xsequence.h>
#include <kelstdmt/xstring.h>

namespace kel::detail {

// The parameters are what is described.
void describe_to_debuggers(const xstring *, const xany *, const xobject *, const xbasesequence *,
                           const xbasedictionary *, const kelXException *, const kelXFunc *);

void describe_to_debuggers(const xstring *, const xany *, const xobject *, const xbasesequence *,
                           const xbasedictionary *, const kelXException *, const kelXFunc *) {}

}  // namespace kel::detail
