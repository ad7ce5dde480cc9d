// The permission lists of a server: the value "ConnectionAllowed" of the key "Software\ORV\NAME", for the
// machine and for the user that the server runs as. Each is a list of shell patterns for numeric addresses; a
// list that is set must have one that matches.
#include "netlibsrc/permission.h"

#include <string>

#include <kelstdmt/reglib.h>
#include <kelstdmt/strlib.h>
#include <kelstdmt/xbasic.h>

#include "runtime/trace.h"

using kel::system::trace, kel::system::trace_area;

namespace {

enum failure : int { not_there = 2, no_descriptors = 4, no_memory = 8 };
enum class verdict { no_list, lets_in, refuses };
constexpr const char *words[] = {" is not set for ", " lets in ", " refuses "};

bool matches(const char *peer, const xstring &list) {
    const xrchandle<xstringsequence> patterns(strExplode(list));
    if (!kel::is_object(patterns.get())) return false;
    for (const xstring &pattern : *patterns)
        if (strExactMatch(peer, pattern, strShell)) return true;
    return false;
}

verdict ask(ovkRegistry *registry, const std::string &path, const char *peer) {
    ovkRegistryKey key;
    if (!key.Open(registry->Root(), path.c_str())) {
        // Who uses up the machine's resources does not get past the list by that.
        const int error = Error_GetLast();
        return error == no_descriptors || error == no_memory ? verdict::refuses : verdict::no_list;
    }
    const xstring list = key.GetValue("ConnectionAllowed");
    // A list that is there and cannot be read lets nobody in.
    if (list.IsNull()) return Error_GetLast() == not_there ? verdict::no_list : verdict::refuses;
    return matches(peer, list) ? verdict::lets_in : verdict::refuses;
}

}  // namespace

bool kel::detail::is_peer_allowed(const btkStreamSocket &peer, const xstring &server_name, bool needs_list) {
    if (peer.IsPeerOnTheSameMachine()) return true;
    const std::string path = "Software\\ORV\\" + std::string(kel::view(server_name));
    bool has_list = false;
    for (ovkRegistry *registry : {ovkRegistry::System(), ovkRegistry::User()}) {
        const verdict told = ask(registry, path, peer.GetPeerAddrStr());
        trace(trace_area::handshake, registry == ovkRegistry::System() ? "machine" : "user", " list of ",
              path, words[static_cast<int>(told)], peer.GetPeerAddrStr());
        if (told == verdict::refuses) return false;
        has_list |= told == verdict::lets_in;
    }
    return has_list || !needs_list;
}
