// The declared types of the event module.
#include <kelstdmt/eventlib.h>

KEL_DEFINE_STRUCT(evtEvent, "eventlib::Event", kel::uncounted,
                  kel::field<&evtEvent::getIsSignaled>("IsSignaled"))
KEL_DEFINE_SEQUENCE(evtEventArray, "eventlib::EventArray", kel::uncounted)
