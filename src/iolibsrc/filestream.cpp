// Files as streams. The runtime's file buffer does the work; a trial reads from the file itself and goes
// back to where it began.
#include <climits>
#include <memory>

#include <kelstdmt/iolib_streams.h>

// The buffer -----------------------------------------------------------------------------------

xfilebuf::xfilebuf(btkFileBuf *file) : m_file(file), m_saved(std::streamoff(-1)) {
    InitStreamBuf(file);
}
xfilebuf::~xfilebuf() = default;

btkBaseEvent *xfilebuf::GetInputEvent() {
    return new btkAlwaysEvent;
}

// What cannot seek cannot go back and does not try. The bytes at hand are brought in first, so that
// whoever counts them does not take a file that was only just opened for an empty one.
std::streambuf *xfilebuf::OnGetTryIBuf() {
    m_saved = m_file->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    if (m_saved == std::streampos(std::streamoff(-1))) return nullptr;
    SetEofReached();
    m_file->sgetc();
    return m_file.get();
}
void xfilebuf::OnFreeTryIBuf() {
    m_file->pubseekpos(m_saved, std::ios_base::in);
}
void xfilebuf::OnFreeTryOBuf() {
    OnFreeTryIBuf();
}

// The stream -----------------------------------------------------------------------------------

namespace {

constexpr std::ios_base::openmode seek_mode(int mode) {
    std::ios_base::openmode which{};
    if (mode & btkFileBuf::In) which |= std::ios_base::in;
    if (mode & btkFileBuf::Out) which |= std::ios_base::out;
    return which;
}

int to_int(long long bytes) {
    return bytes >= 0 && bytes <= INT_MAX ? static_cast<int>(bytes) : -1;
}

}  // namespace

ioFileStream::ioFileStream(xfilebuf *buffer, btkFileBuf *file, const char *path, bool canwrite, bool canread)
    : ioStream(ioSerializer::getAscii(), buffer, canwrite, canread),
      m_buffer(buffer),
      m_file(file),
      m_mode((canread ? btkFileBuf::In : 0) | (canwrite ? btkFileBuf::Out : 0)),
      m_path(path) {}

ioFileStream::~ioFileStream() {
    Close();
}

ioFileStream *ioFileStream::CreateFS(const char *path, ioOpenMode mode, int extrabits) {
    bool canread = mode == ioReadOnly || mode == ioReadWrite;
    bool canwrite = mode == ioWriteOnly || mode == ioReadWrite;
    int direction = (canread ? btkFileBuf::In : 0) | (canwrite ? btkFileBuf::Out : 0);
    auto owned = std::make_unique<btkFileBuf>();
    btkFileBuf *file = owned.get();
    auto buffer = std::make_unique<xfilebuf>(file);
    owned.release();
    if (!file->Open(path, extrabits | direction)) return nullptr;
    auto *stream = kel::construct_with<ioFileStream>(
        [&](void *at) { return ::new (at) ioFileStream(buffer.get(), file, path, canwrite, canread); });
    buffer.release();
    return stream;
}

ioFileStream *ioFileStream::Open(const char *path, ioOpenMode mode) {
    return CreateFS(path, mode, btkFileBuf::NoCreate);
}
ioFileStream *ioFileStream::Create(const char *path, ioOpenMode mode, bool overwrite) {
    return CreateFS(path, mode, overwrite ? 0 : btkFileBuf::NoReplace);
}

ioFileStream *ioFileStream::OpenPlain(const char *path, ioOpenMode mode) {
    return CreateFS(path, mode, btkFileBuf::NoCreate | btkFileBuf::Plain);
}
ioFileStream *ioFileStream::CreatePlain(const char *path, ioOpenMode mode) {
    return CreateFS(path, mode, btkFileBuf::Plain);
}

void ioFileStream::OnClose() {
    File_Close(std::exchange(m_inherit, -1));
    if (!m_file->Close() && getCanWrite()) SetState(Bad);
    delete m_buffer;
}
void ioFileStream::SetTextMode() {
    m_file->SetMode(false);
}
void ioFileStream::SetBinaryMode() {
    m_file->SetMode(true);
}

int ioFileStream::GetInheritHandle() {
    CheckOpen();
    if (m_inherit < 0) m_inherit = File_OpenInherit(m_path, getCanRead(), getCanWrite());
    return m_inherit;
}

// Positions ------------------------------------------------------------------------------------

void ioFileStream::SeekOff(int offset, ioDirection direction) {
    CheckOpen();
    auto from = direction == ioBegin ? std::ios_base::beg
                : direction == ioEnd ? std::ios_base::end
                                     : std::ios_base::cur;
    if (m_file->pubseekoff(offset, from, seek_mode(m_mode)) == std::streampos(std::streamoff(-1)))
        ThrowState(Bad);
    ClearState(Eof);
}

int ioFileStream::TellPos() {
    CheckOpen();
    return to_int(m_file->pubseekoff(0, std::ios_base::cur, seek_mode(m_mode)));
}

int ioFileStream::TellSize() {
    CheckOpen();
    Flush();
    return to_int(File_GetSize(m_file->GetHandle()));
}

void ioFileStream::Truncate(int size) {
    GuardOutput();
    long long bytes = kel::is_nil(size)
                          ? std::streamoff(m_file->pubseekoff(0, std::ios_base::cur, seek_mode(m_mode)))
                          : size;
    Flush();
    File_Truncate(m_file->GetHandle(), bytes);
}

// Past the buffer ------------------------------------------------------------------------------

int ioFileStream::SettledHandle() {
    CheckOpen();
    if (m_file->pubsync() == -1 && getCanWrite()) ThrowState(Bad);
    return m_file->GetHandle();
}

unsigned ioFileStream::ReadAt(long long position, void *to, unsigned count) {
    int handle = SettledHandle();
    CheckRead();
    long long got = File_ReadAt(handle, to, count, position);
    if (got < 0) ThrowState(Bad);
    return static_cast<unsigned>(got);
}

void ioFileStream::WriteAt(long long position, const void *from, unsigned count) {
    int handle = SettledHandle();
    CheckWrite();
    if (File_WriteAt(handle, from, count, position) != static_cast<long long>(count)) ThrowState(Bad);
}

void ioFileStream::AwaitWrite() {
    File_AwaitWrite(SettledHandle());
}

long long ioFileStream::GetFileSize() {
    long long size = File_GetSize(SettledHandle());
    if (size < 0) ThrowState(Bad);
    return size;
}

void ioFileStream::SetFileSize(long long bytes) {
    int handle = SettledHandle();
    CheckWrite();
    if (!File_Truncate(handle, bytes)) ThrowState(Bad);
}
