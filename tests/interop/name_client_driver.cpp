// Both clients of a name server, driven by a name server in another language: `name_client_driver
// [PATIENCE]`, in seconds. Each line of the input is "API OPERATION HOST PORT PROCESS [NAME=VALUE]...",
// separated by tabs: API is `functions` or `module`, the host `-` is this one. What came of it follows on the
// output, up to a line with a dot; the functions print their errors on standard error.
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/syslib.h>

namespace {

using Fields = std::map<std::string, std::string>;

struct Request {
    std::string operation, host;
    int process = 0;
    std::vector<std::pair<std::string, std::string>> fields;

    bool is_local() const { return host == "-"; }
};

void tell(unsigned process, const Fields &fields) {
    std::cout << "record " << process;
    for (const auto &[name, value] : fields)
        std::cout << '\t' << name << '=' << value;
    std::cout << '\n';
}

void by_functions(const Request &request) {
    nmsServ *server = request.is_local() ? nmsServConnectLocal() : nmsServConnectByName(request.host.c_str());
    nmsRec *record = nmsRecCreate(request.process), **found = nullptr;
    for (const auto &[name, value] : request.fields)
        nmsRecAdd(record, name.c_str(), value.c_str());
    nmsErr *error = nullptr;
    int count = 0;
    if (request.operation == "ping") error = nmsServPing(server);
    if (request.operation == "register") error = nmsServRegister(server, record);
    if (request.operation == "delete") error = nmsServRemove(server, record);
    if (request.operation == "query") error = nmsServQuery(server, record, &found, &count);
    std::cout << "code " << nmsErrGetCode(error) << std::endl;
    nmsErrPrint(error);
    for (int i = 0; i < count; ++i) {
        Fields fields;
        for (const char *name : {"_ServerName", "_PortNumber", "a", ""})
            if (nmsRecHasField(found[i], name)) fields[name] = nmsRecGetFieldValueByName(found[i], name);
        tell(0, fields);
    }
    nmsErrDelete(error);
    nmsRecArrayDelete(found, count);
    nmsRecDelete(record);
    nmsServDelete(server);
}

nmsServerProxy *proxy_of(const Request &request) {
    const char *host = request.host.c_str();
    if (request.operation == "connect")
        return request.is_local() ? nmsServerProxy::ConnectLocal() : nmsServerProxy::ConnectByName(host);
    return request.is_local() ? nmsServerProxy::InitLocalProxy() : nmsServerProxy::InitProxy(host);
}

void by_module(const Request &request) {
    const std::unique_ptr<nmsServerProxy> proxy(proxy_of(request));
    xauto<nmsRecord> record(static_cast<unsigned>(request.process));
    for (const auto &[name, value] : request.fields)
        record.Add(name.c_str(), value.c_str());
    if (request.operation == "ping") std::cout << (proxy->IsAlive() ? "alive\n" : "not alive\n");
    if (request.operation == "status") {
        const std::unique_ptr<nmsClientStatus> status(proxy->Ping());
        std::cout << *status;
    }
    if (request.operation == "register") proxy->Register(&record);
    if (request.operation == "delete") {
        const int deleted = proxy->Delete(&record);
        std::cout << "deleted " << deleted << '\n';
    }
    if (request.operation == "version") {
        const xstring version = proxy->GetVersion();
        std::cout << "version " << version << '\n';
    }
    if (request.operation == "shutdown") proxy->Shutdown();
    if (request.operation == "query") {
        const std::unique_ptr<nmsRecordArray> found(proxy->Query(&record));
        for (nmsRecord *each : *found) {
            Fields fields;
            for (auto [name, value] : *each->getFields())
                fields[name] = kel::view(value);
            tell(each->GetAssociatedId(), fields);
            delete each;
        }
    }
    std::cout << "done\n";
}

void perform(const std::string &api, const Request &request) {
    try {
        api == "functions" ? by_functions(request) : by_module(request);
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        auto *external = error.as<kelXExternFunc>();
        std::cout << error.type_name() << " from " << external->getFunc()->getName() << ": "
                  << error.description() << '\n';
        if (auto *by_name = error.as<nmsXCantConnectByName>())
            std::cout << "server " << by_name->getServerName() << '\n';
    }
}

}  // namespace

int main(int count, char **arguments) {
    if (count > 1) kel::set_name_service_patience(std::stod(arguments[1]));
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string api, port, process, field;
        Request request;
        std::getline(words, api, '\t');
        std::getline(words, request.operation, '\t');
        std::getline(words, request.host, '\t');
        std::getline(words, port, '\t');
        std::getline(words, process, '\t');
        request.process = std::stoi(process);
        while (std::getline(words, field, '\t')) {
            const std::size_t sign = field.find('=');
            request.fields.emplace_back(field.substr(0, sign), field.substr(sign + 1));
        }
        sysPutEnv("ORVNMSPORT", port.c_str());
        perform(api, request);
        std::cout << "." << std::endl;
    }
}
