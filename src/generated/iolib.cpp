// The declared types of the stream module.
#include <kelstdmt/iolib.h>

KEL_DEFINE_ENUM(ioEventType, "iolib::EventType", "ioInputPending", "ioOutputPending")
KEL_DEFINE_STRUCT(ioEvent, "iolib::Event", kel::uncounted, kel::field<&ioEvent::getStream>("Stream"),
                  kel::field<&ioEvent::getType>("Type"))
KEL_DEFINE_STRUCT(ioSerializer, "iolib::Serializer", kel::uncounted,
                  kel::field<&ioSerializer::getAscii>("Ascii"),
                  kel::field<&ioSerializer::getBinary>("Binary"), kel::field<&ioSerializer::getXDR>("XDR"))
KEL_DEFINE_ENUM(ioTryCode, "iolib::TryCode", "ioSuccess", "ioWouldBlock", "ioEndOfFile", "ioIOError",
                "ioFormatError", "ioNotSupported")

KEL_DEFINE_STRUCT(
    ioStream, "iolib::Stream", kel::uncounted, kel::field<&ioStream::getSerializer>("Serializer"),
    kel::field<&ioStream::getIsOpen>("IsOpen"), kel::field<&ioStream::getCanRead>("CanRead"),
    kel::field<&ioStream::getCanWrite>("CanWrite"), kel::field<&ioStream::getIsBuffered>("IsBuffered"),
    kel::field<&ioStream::getBufferSize>("BufferSize"),
    kel::optional_field<&ioStream::getITimeout>("ITimeout"),
    kel::optional_field<&ioStream::getOTimeout>("OTimeout"), kel::field<&ioStream::getIsEof>("IsEof"),
    kel::field<&ioStream::getIsFail>("IsFail"), kel::field<&ioStream::getIsBad>("IsBad"),
    kel::field<&ioStream::getIsGood>("IsGood"), kel::field<&ioStream::getIsTimeout>("IsTimeout"),
    kel::field<&ioStream::getIsDataLost>("IsDataLost"),
    kel::field<&ioStream::getWouldDataLost>("WouldDataLost"), kel::field<&ioStream::getStdin>("Stdin"),
    kel::field<&ioStream::getStdout>("Stdout"), kel::field<&ioStream::getStderr>("Stderr"))
KEL_DEFINE_ENUM(ioError, "iolib::Error", "ioStreamState", "ioInputNotAllowed", "ioOutputNotAllowed",
                "ioIncompatibleFormat", "ioImproperFunction", "ioUnsupportedFunction")
KEL_DEFINE_STRUCT(ioXStream, "iolib::XStream", kel::uncounted, kel::field<&ioXStream::getStream>("Stream"),
                  kel::field<&ioXStream::getError>("Error"), kel::optional_field<&ioXStream::getMsg>("Msg"))

KEL_DEFINE_ENUM(ioOpenMode, "iolib::OpenMode", "ioReadOnly", "ioWriteOnly", "ioReadWrite")
KEL_DEFINE_ENUM(ioDirection, "iolib::Direction", "ioBegin", "ioEnd", "ioCur")
KEL_DEFINE_STRUCT(ioFileStream, "iolib::FileStream", kel::uncounted,
                  kel::field<&ioFileStream::getPath>("Path"))
KEL_DEFINE_STRUCT(ioPipeStream, "iolib::PipeStream", kel::uncounted)
KEL_DEFINE_STRUCT(ioPipe, "iolib::Pipe", kel::uncounted)
KEL_DEFINE_STRUCT(ioStringStream, "iolib::StringStream", kel::uncounted,
                  kel::field<&ioStringStream::getStr>("Str"))
