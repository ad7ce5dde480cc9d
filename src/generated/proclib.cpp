// The declared types of the process module.
#include <kelstdmt/proclib.h>

KEL_DEFINE_ENUM(pcCreateError, "proclib::CreateError", "pcBadIn", "pcBadOut", "pcBadErr", "pcTooLongArgs",
                "pcFileNotFound", "pcCantExecute", "pcNoMemory", "pcBadWorkDir", "pcBadProcessId")
KEL_DEFINE_ENUM(pcProcessStatus, "proclib::ProcessStatus", "pcUninit", "pcRunning", "pcExited")

KEL_DEFINE_STRUCT(pcXException, "proclib::XException", kel::uncounted,
                  kel::field<&pcXException::getMsg>("Msg"))
KEL_DEFINE_STRUCT(pcXCreate, "proclib::XCreate", kel::uncounted,
                  kel::field<&pcXCreate::getNamedError>("Error"))
KEL_DEFINE_STRUCT(pcXProcess, "proclib::XProcess", kel::uncounted,
                  kel::field<&pcXProcess::getProcess>("Process"))

KEL_DEFINE_STRUCT(pcProcess, "proclib::Process", kel::uncounted, kel::field<&pcProcess::getId>("Id"))
KEL_DEFINE_STRUCT(pcEvent, "proclib::Event", kel::uncounted, kel::field<&pcEvent::getProcess>("Process"))
KEL_DEFINE_STRUCT(pcInterruptEvent, "proclib::InterruptEvent", kel::uncounted)
