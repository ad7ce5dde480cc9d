// Writes what the pages of doc/ show byte by byte: formats_driver FOLDER makes a file of each format in the
// folder. Then it serves the three protocols on ports that it prints, each in its own thread, until clients
// end them.
#include <iostream>
#include <thread>

#include <kelstdmt/kelstdmt.h>
#include <kelstdmt/nameserver.h>

KEL_DECLARE_STRUCT(Point)
class Point : public xobject {
    KEL_CLASS(Point, xobject)
public:
    int x = 3;
    xstring name = "p";
};
KEL_DEFINE_STRUCT(Point, "demo::Point", kel::counted, kel::field<&Point::x>("x"),
                  kel::field<&Point::name>("name"))

namespace {

std::unique_ptr<ioFileStream> created(const char *name) {
    return std::unique_ptr<ioFileStream>(ioFileStream::Create(name, ioWriteOnly, true));
}

void encode(const char *name, ioSerializer *encoding) {
    const auto stream = created(name);
    stream->setSerializer(encoding);
    for (int value = 0; value < 5; ++value) {
        if (value == 0) stream->WriteByte('k');
        if (value == 1) stream->WriteBool(true);
        if (value == 2) stream->WriteInt(-2);
        if (value == 3) stream->WriteReal(0.5);
        if (value == 4) stream->WriteString("abc");
        if (encoding == ioSerializer::getAscii()) stream->WriteByte(value < 4 ? ' ' : '\n');
    }
}

void write_files() {
    encode("text", ioSerializer::getAscii());
    encode("binary", ioSerializer::getBinary());
    encode("xdr", ioSerializer::getXDR());
    xrchandle<Point>(kel::construct<Point>())->print(created("printed").get());

    ovkConfigFile settings;
    settings.Open("settings", ovkConfigFile::ReadWrite);
    settings.SetValue("window width", "640");
    settings.SetValue("title", " a:b");
    settings.Close();

    std::unique_ptr<monFile> monitor(monFile::Create("monitor", "Status"));
    monitor->Int("count")->setValue(7);
    monitor->String("msg", 8)->setValue("hi");

    std::unique_ptr<regRegistry> user(regRegistry::User());
    std::unique_ptr<regKey> key(user->CreateSubkey("Software\\Demo"));
    key->SetValue("Port", 80);
    kel::set_registry_value(key->Key(), {"Icon", 3, std::string("\x89PNG", 4)});
}

struct Shells : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *stream) override {
        const std::unique_ptr<netSocketStream> owned(stream);
        rshServer::Execute(stream, "", nullptr);
        return netServerTerminate;
    }
};

struct Closing : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *stream) override {
        const std::unique_ptr<netSocketStream> owned(stream);
        stream->WriteInt(2 * stream->ReadInt());
        return netServerContinue;
    }
};

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    fsChangeDir(argv[1]);
    write_files();

    std::string error;
    const auto names = kel::name_server::create({}, error);
    if (!names || !names->start()) return 1;
    Shells shells;
    const std::unique_ptr<netBaseServer> shell(netBaseServer::Create(nullptr, 0));
    shell->setOnRequest(&shells);
    Closing doubles;
    const std::unique_ptr<netServer> server(netServer::Create(xstrNullStr, 0));
    server->setOnRequest(&doubles);
    std::cout << names->port() << ' ' << shell->getPortN() << ' ' << server->getPortN() << std::endl;

    // The last words of the two conversations end the servers.
    std::thread shell_thread([&] { shell->Run(); });
    server->Run();
    shell_thread.join();
}
