#include "transport.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <new>
#include <sstream>
#include <thread>

#include "coding.h"
#include "compare.h"

namespace {

class Stopwatch {
public:
    double Seconds() const { return std::chrono::duration<double>(clock::now() - m_start).count(); }

private:
    using clock = std::chrono::steady_clock;
    clock::time_point m_start = clock::now();
};

const char *LastError() {
    return Error_GetText(Error_GetLast());
}

void ByFile(Inventory &sent, Inventory &received, const Encoding &encoding, const DataFolder &folder,
            Journey &journey) {
    std::unique_ptr<ioFileStream> file = folder.Create(encoding.file);
    Stopwatch writing;
    WriteFile(*file, encoding.serializer(), sent);
    journey.write_seconds = writing.Seconds();
    if (int size = file->TellSize(); size >= 0 && size != journey.bytes)
        XFile::Throw(file->getPath(), ("it holds " + std::to_string(size) + " bytes, expected " +
                                       std::to_string(journey.bytes))
                                          .c_str());

    Stopwatch reading;
    Progress progress(std::string("reading from a file in ") + encoding.name);
    file->SeekOff(0, ioBegin);
    ReadInventory(*file, received, progress);
    journey.read_seconds = reading.Seconds();
}

void ByText(Inventory &sent, Inventory &received, const Encoding &encoding, const DataFolder &,
            Journey &journey) {
    std::unique_ptr<ioStringStream> text(ioStringStream::Create());
    text->setSerializer(encoding.serializer());
    Progress progress(std::string("to memory and back in ") + encoding.name);
    Stopwatch writing;
    WriteInventory(*text, sent, progress);
    journey.write_seconds = writing.Seconds();
    Stopwatch reading;
    ReadInventory(*text, received, progress);
    journey.read_seconds = reading.Seconds();
}

// A pipe holds little: whoever writes more waits for a reader. So the writer is a thread of its own, and each
// side ends the other by closing its end: the reader then meets the end of the data, the writer an error.
class PipeWriter {
public:
    PipeWriter(ioPipe &pipe, ioSerializer *encoding, Inventory &inventory)
        : m_output(*kel_pipe_access::WriteStream(pipe)),
          m_input(*kel_pipe_access::ReadStream(pipe)),
          m_thread([this, encoding, &inventory] { Write(encoding, inventory); }) {}
    ~PipeWriter() {
        if (!m_thread.joinable()) return;
        m_input.Close();
        m_thread.join();
    }

    // Waits until all is written, and throws what kept it from being written.
    double Finish() {
        m_thread.join();
        if (!m_failure.empty()) XFile::Throw("a pipe", m_failure.c_str());
        return m_seconds;
    }

private:
    void Write(ioSerializer *encoding, Inventory &inventory) {
        try {
            Stopwatch watch;
            Progress silent;
            m_output.setSerializer(encoding);
            WriteInventory(m_output, inventory, silent);
            m_output.Flush();
            if (m_output.getIsBad()) XFile::Throw("a pipe", LastError());
            m_seconds = watch.Seconds();
        } catch (...) {
            m_failure = WhatHappened();
        }
        m_output.Close();
    }

    ioPipeStream &m_output, &m_input;
    std::string m_failure;
    double m_seconds = 0;
    std::thread m_thread;
};

void ByPipe(Inventory &sent, Inventory &received, const Encoding &encoding, const DataFolder &,
            Journey &journey) {
    std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    if (!pipe) XFile::Throw("a pipe", LastError());
    ioPipeStream &input = *kel_pipe_access::ReadStream(*pipe);
    input.setSerializer(encoding.serializer());
    Progress progress(std::string("through a pipe in ") + encoding.name);
    PipeWriter writer(*pipe, encoding.serializer(), sent);
    Stopwatch reading;
    try {
        ReadInventory(input, received, progress);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        if (input.getIsEof()) writer.Finish();  // a writer that gave up knows the better reason
        error.rethrow();
    }
    journey.read_seconds = reading.Seconds();
    journey.write_seconds = writer.Finish();
}

struct Kind {
    const char *name;
    void (*go)(Inventory &sent, Inventory &received, const Encoding &, const DataFolder &, Journey &);
};
constexpr Kind kinds[] = {{"file", &ByFile}, {"pipe", &ByPipe}, {"string", &ByText}};

Journey Go(const Kind &kind, const Encoding &encoding, Inventory &sent, const DataFolder &folder,
           long long bytes) {
    Journey journey;
    journey.stream = kind.name;
    journey.encoding = encoding.name;
    journey.bytes = bytes;
    try {
        xrchandle<Inventory> received(kel::construct<Inventory>());
        kind.go(sent, *received, encoding, folder, journey);
        Comparison comparison = Compare(&sent, received);
        journey.compared = comparison.values;
        journey.difference = comparison.difference;
    } catch (...) {
        journey.difference = WhatHappened();
    }
    return journey;
}

}  // namespace

DataFolder::DataFolder(std::filesystem::path keep) : m_keep(std::move(keep)) {
    std::error_code error;
    std::filesystem::create_directories(m_keep, error);
    if (!std::filesystem::is_directory(m_keep))
        XFile::Throw(m_keep.c_str(), error ? error.message().c_str() : "It is no folder.");
}

std::unique_ptr<ioFileStream> DataFolder::Create(const std::string &ending) const {
    if (m_keep.empty()) return CreateUnnamed();
    std::filesystem::path path = m_keep / ("inventory." + ending);
    std::error_code ignored;
    if (std::filesystem::is_fifo(path, ignored))
        XFile::Throw(path.c_str(), "It is a pipe and keeps nothing.");
    std::unique_ptr<ioFileStream> file(ioFileStream::Create(path.c_str(), ioReadWrite, true));
    if (!file) XFile::Throw(path.c_str(), LastError());
    file->Truncate(0);
    return file;
}

std::unique_ptr<ioFileStream> DataFolder::CreateUnnamed() const {
    std::error_code error;
    std::filesystem::path path = m_keep.empty() ? std::filesystem::temp_directory_path(error) : m_keep;
    if (error) {
        const char *folder = std::getenv("TMPDIR");
        XFile::Throw(folder ? folder : "/tmp",
                     "It is no folder for temporary files. TMPDIR may name another.");
    }
    path /= ".inventory-" + std::to_string(btkRandomSeed());
    std::unique_ptr<ioFileStream> file(ioFileStream::Create(path.c_str(), ioReadWrite, false));
    if (!file)
        XFile::Throw(path.c_str(), (std::string(LastError()) + " TMPDIR may name another folder.").c_str());
    std::filesystem::remove(path, error);
    return file;
}

void WriteFile(ioFileStream &file, ioSerializer *encoding, Inventory &inventory) {
    Progress progress(std::string("writing ") + static_cast<const char *>(file.getPath()));
    try {
        file.setSerializer(encoding);
        WriteInventory(file, inventory, progress);
        file.Flush();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        if (!file.getIsBad()) error.rethrow();
    }
    if (file.getIsBad()) XFile::Throw(file.getPath(), LastError());
}

std::vector<Journey> Travel(Inventory &sent, const DataFolder &folder) {
    std::vector<Journey> journeys;
    std::array<long long, encodings.size()> bytes;
    for (std::size_t i = 0; i < encodings.size(); ++i)
        bytes[i] = SizeOf(encodings[i].serializer(), sent);
    for (const Kind &kind : kinds)
        for (std::size_t i = 0; i < encodings.size(); ++i)
            journeys.push_back(Go(kind, encodings[i], sent, folder, bytes[i]));
    return journeys;
}

std::string WhatHappened() try {
    try {
        throw;
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        std::ostringstream text;
        if (auto *file = error.as<XFile>())
            text << file->getPath() << ": " << file->getReason();
        else if (auto *data = error.as<XBadData>())
            text << data->getDescription() << ' ' << data->getReason();
        else
            text << error.type_name() << ": " << error.description();
        return text.str();
    } catch (const std::bad_alloc &) {
        return "there is not enough memory";
    } catch (const std::exception &error) {
        return error.what();
    }
} catch (const std::bad_alloc &) {
    return "out of memory";  // short enough to need none
}
