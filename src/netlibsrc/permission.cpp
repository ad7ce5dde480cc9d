// The permission lists of a server: the value "ConnectionAllowed" of the key "Software\ORV\NAME", for the
// machine and for the user that the server runs as. Each is a list of shell patterns for numeric addresses; a
// list that is set must have one that matches.
#include "netlibsrc/permission.h"

#include <string>

#include <kelstdmt/reglib.h>
#include <kelstdmt/strlib.h>
#include <kelstdmt/xbasic.h>

namespace {

enum failure : int { not_there = 2, no_descriptors = 4, no_memory = 8 };

bool matches(const char *peer, const xstring &list) {
    const xrchandle<xstringsequence> patterns(strExplode(list));
    if (!kel::is_object(patterns.get())) return false;
    for (const xstring &pattern : *patterns)
        if (strExactMatch(peer, pattern, strShell)) return true;
    return false;
}

bool lets_in(ovkRegistry *registry, const std::string &path, const char *peer) {
    ovkRegistryKey key;
    if (!key.Open(registry->Root(), path.c_str())) {
        // Who uses up the machine's resources does not get past the list by that.
        const int error = Error_GetLast();
        return error != no_descriptors && error != no_memory;
    }
    const xstring list = key.GetValue("ConnectionAllowed");
    // A list that is there and cannot be read lets nobody in.
    return list.IsNull() ? Error_GetLast() == not_there : matches(peer, list);
}

}  // namespace

bool kel::detail::is_peer_allowed(const btkStreamSocket &peer, const xstring &server_name) {
    if (peer.IsPeerOnTheSameMachine()) return true;
    const std::string path = "Software\\ORV\\" + std::string(kel::view(server_name));
    return lets_in(ovkRegistry::System(), path, peer.GetPeerAddrStr()) &&
           lets_in(ovkRegistry::User(), path, peer.GetPeerAddrStr());
}
