// Finds its own record in its own name server.
#include <kelstdmt/nameserver.h>
#include <kelstdmt/vumrt_names.h>

int main() {
    std::string error;
    const auto names = kel::name_server::create({}, error);
    if (!names || !names->start()) return 1;
    Putenv("ORVNMSPORT", std::to_string(names->port()).c_str());
    nmsServ *server = nmsServConnectLocal();
    nmsRec *record = nmsRecCreate(1), **found = nullptr;
    nmsRecAdd(record, "_ServerName", "outside");
    int count = 0;
    const bool done =
        !nmsServRegister(server, record) && !nmsServQuery(server, record, &found, &count) && count == 1;
    nmsRecArrayDelete(found, count);
    nmsRecDelete(record);
    nmsServDelete(server);
    return done ? 0 : 1;
}
