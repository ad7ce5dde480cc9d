// Both sides of the remote shell, driven by a peer in another language.
//
//     serve FOLDER             Two ports stand in the first line: one serves by rshServer::Execute, the other
//                              by rshServer objects. Below the folder are relative directories. A line tells
//                              the end of each request. "terminate" and "close" on the input reach the
//                              objects; the end of the input stops the servers.
//     run PORT COMMAND DIRECTORY SHELL pipes|streams FD
//                              One command. Its channels are this program's, through pipes or as streams of
//                              the caller's. FD takes "interrupt", "terminate", "close" and "wait", and tells
//                              what came of it.
//     repeat PORT              For each line "THREADS COUNT wait|interrupt|terminate|close COMMAND" of the
//                              input so many commands; the answer counts the exit codes.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>
#include <kelstdmt/rshlib.h>

namespace {

std::mutex printing;
void tell(const std::string &line) {
    const std::lock_guard lock(printing);
    std::cout << line << std::endl;
}

// Serving -------------------------------------------------------------------------------------------

struct Order {
    btkEventHandle handle = Event_Create(false);
    evtEvent event{new btkEVENTEvent(handle)};
};

struct Serving : netBaseServer_OnRequest_cb, netBaseServer_OnAsyncRequest_cb, netBaseServer_OnIdle_cb {
    std::string folder;
    bool objects;
    std::atomic<bool> over{false};
    Order terminate, close;
    std::unique_ptr<netBaseServer> server{netBaseServer::Create(nullptr, 0)};
    std::thread loop;

    Serving(const char *base, bool by_objects) : folder(base), objects(by_objects) {
        server->setOnRequest(this);
        server->setOnAsyncRequest(this);
        server->setOnIdle(this);
        loop = std::thread([this] {
            server->Run();
            server.reset();
        });
    }
    netServerLoopAction OnIdle(netBaseServer *) override {
        return over ? netServerTerminate : netServerContinue;
    }
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *stop) override {
        std::unique_ptr<netSocketStream> owned(stream);
        bool launched = false;
        if (objects)
            ServeByObject(stream, stop);
        else
            launched = rshServer::Execute(stream, folder.c_str(), stop);
        owned.reset();
        tell(objects ? "ended" : launched ? "served" : "refused");
        return netServerContinue;
    }
    void ServeByObject(netSocketStream *stream, evtEvent *stop) {
        const std::unique_ptr<rshServer> object(rshServer::Create(stream, folder.c_str(), 1));
        if (!object) return;
        std::unique_ptr<rshServerEvent> ended(object->ExitEvent());
        xauto<evtEventArray> events;
        events.append(ended.get());
        events.append(stop);
        events.append(&terminate.event);
        events.append(&close.event);
        const int signalled = evtEvent::Wait(&events, INFINITE);
        if (signalled == 4) return ended.reset(), object->Close();
        if (signalled != 1) object->Terminate(), object->Terminate();
        ended->Wait(INFINITE);
        ended.reset();
    }
};

int serve(const char *folder) {
    Serving execute(folder, false), objects(folder, true);
    tell(std::to_string(execute.server->getPortN()) + " " + std::to_string(objects.server->getPortN()));
    for (std::string line; std::getline(std::cin, line);)
        Event_Set(line == "close" ? objects.close.handle : objects.terminate.handle);
    execute.over = objects.over = true;
    execute.loop.join();
    objects.loop.join();
    tell("over");
    return 0;
}

// One command ---------------------------------------------------------------------------------------

std::unique_ptr<netSocketStream> connect(const char *port) {
    const std::unique_ptr<netAddress> address(netAddress::Create(std::atoi(port), "127.0.0.1"));
    return std::unique_ptr<netSocketStream>(netBaseServer::Connect(address.get(), 60));
}

void pump(int from, ioStream *to) {
    std::vector<char> block(1 << 16);
    try {
        for (ssize_t count; (count = ::read(from, block.data(), block.size())) > 0;) {
            to->WriteBytes(block.data(), static_cast<unsigned>(count));
            to->Flush();
        }
        to->Close();
    } catch (xthrowable *closed) {
        const kel::caught error(closed);
    }
}

void pump(ioStream *from, std::FILE *to) {
    std::vector<char> block(1 << 16);
    const std::unique_ptr<ioEvent> input(from->InputEvent());
    while (input->Wait(INFINITE)) {
        const unsigned there = std::min(from->PeekNBytes(), 1u << 16);
        if (there == 0) break;
        const unsigned count = from->ReadBytes(block.data(), there);
        if (std::fwrite(block.data(), 1, count, to) != count || std::fflush(to) != 0) break;
    }
    std::fclose(to);
}

std::string refusal(xthrowable *thrown) {
    kel::caught error(thrown);
    auto *refused = error.as<rshXProcess>();
    if (!refused) return "another exception";
    return "refused " + std::to_string(refused->getError()) + " " +
           std::to_string(static_cast<int>(refused->getCreateError())) + " " +
           std::string(kel::view(refused->getMsg()));
}

class Reports {
public:
    explicit Reports(const char *descriptor) : m_file(::fdopen(std::atoi(descriptor), "r+")) {}
    ~Reports() { std::fclose(m_file); }
    bool next(std::string &order) {
        char line[80];
        if (!std::fgets(line, sizeof line, m_file)) return false;
        order.assign(line, std::string_view(line).find('\n'));
        return true;
    }
    void report(const std::string &line) {
        std::fputs((line + "\n").c_str(), m_file);
        std::fflush(m_file);
    }

private:
    std::FILE *m_file;
};

void obey(rshProcess &process, Reports &reports) {
    for (std::string order; reports.next(order);) {
        if (order == "interrupt") process.Interrupt();
        if (order == "terminate") process.Terminate();
        if (order == "running") reports.report(process.IsRunning() ? "running" : "ended");
        if (order == "wait") {
            std::unique_ptr<rshEvent> ended(process.ExitEvent());
            ended->Wait(INFINITE);
            ended.reset();
            reports.report("exit " + std::to_string(process.GetExitCode()));
        }
        if (order == "close") process.Close(), reports.report("closed");
    }
}

int run(char **arguments) {
    Reports reports(arguments[5]);
    const auto connection = connect(arguments[0]);
    if (!connection) return reports.report("not connected"), 1;
    const bool streams = std::string_view(arguments[4]) == "streams";
    const char *directory = *arguments[2] ? arguments[2] : nullptr;
    std::unique_ptr<rshProcess> process;
    try {
        process.reset(rshProcess::Create(connection.get(), arguments[1], directory,
                                         streams ? ioStream::getStdin() : nullptr,
                                         streams ? ioStream::getStdout() : nullptr,
                                         streams ? ioStream::getStderr() : nullptr, *arguments[3] == '1', 1));
    } catch (xthrowable *thrown) {
        return reports.report(refusal(thrown)), 0;
    }
    if (!process) return reports.report("null"), 0;
    reports.report("started");
    if (!streams) {
        std::thread([in = process->getStdin()] { pump(STDIN_FILENO, in); }).detach();
        std::thread out([&] { pump(process->getStdout(), stdout); });
        std::thread err([&] { pump(process->getStderr(), stderr); });
        obey(*process, reports);
        out.join();
        err.join();
        std::_Exit(0);  // the thread of the input may wait for more
    }
    obey(*process, reports);
    return 0;
}

// Many commands -------------------------------------------------------------------------------------

std::string outcome(const char *port, const std::string &action, const char *command) {
    const auto connection = connect(port);
    if (!connection) return "not connected";
    std::unique_ptr<rshProcess> process;
    try {
        process.reset(
            rshProcess::Create(connection.get(), command, nullptr, nullptr, nullptr, nullptr, 0, 1));
    } catch (xthrowable *thrown) {
        return refusal(thrown);
    }
    if (!process) return "null";
    if (action == "close") return process->Close(), "closed";
    if (action == "interrupt") process->Interrupt();
    if (action == "terminate") process->Terminate();
    char block[4096];
    {
        const std::unique_ptr<ioEvent> output(process->getStdout()->InputEvent());
        while (output->Wait(INFINITE)) {
            const unsigned there = process->getStdout()->PeekNBytes();
            if (there == 0) break;
            process->getStdout()->ReadBytes(block, std::min<unsigned>(there, sizeof block));
        }
    }
    std::unique_ptr<rshEvent>(process->ExitEvent())->Wait(INFINITE);
    return std::to_string(process->GetExitCode());
}

int repeat(const char *port) {
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        unsigned threads, count;
        std::string action, command;
        words >> threads >> count >> action;
        std::getline(words >> std::ws, command);
        std::map<std::string, int> outcomes;
        std::mutex guard;
        std::vector<std::thread> running;
        for (unsigned i = 0; i < threads; ++i)
            running.emplace_back([&] {
                for (unsigned n = 0; n < count; ++n) {
                    const std::string saw = outcome(port, action, command.c_str());
                    const std::lock_guard lock(guard);
                    ++outcomes[saw];
                }
            });
        for (std::thread &thread : running)
            thread.join();
        std::string answer;
        for (const auto &[saw, times] : outcomes)
            answer += (answer.empty() ? "" : ", ") + std::to_string(times) + " times " + saw;
        tell(answer);
    }
    return 0;
}

}  // namespace

int main(int count, char **arguments) {
    const std::string_view mode = count > 2 ? arguments[1] : "";
    if (mode == "serve") return serve(arguments[2]);
    if (mode == "run" && count == 8) return run(arguments + 2);
    if (mode == "repeat") return repeat(arguments[2]);
    return 2;
}
