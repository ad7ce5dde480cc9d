// The declared types of the time module.
#include <kelstdmt/timelib.h>

KEL_DEFINE_STRUCT(tmTime, "timelib::Time", kel::uncounted, kel::field<&tmTime::getAbsTime>("AbsTime"),
                  kel::field<&tmTime::getYear>("Year"), kel::field<&tmTime::getMonth>("Month"),
                  kel::field<&tmTime::getDayOfMonth>("DayOfMonth"),
                  kel::field<&tmTime::getDayOfWeek>("DayOfWeek"), kel::field<&tmTime::getHour>("Hour"),
                  kel::field<&tmTime::getMinute>("Minute"), kel::field<&tmTime::getSecond>("Second"))

KEL_DEFINE_STRUCT(tmXException, "timelib::XException", kel::uncounted)
KEL_DEFINE_STRUCT(tmXInvalTimeString, "timelib::XInvalTimeString", kel::uncounted,
                  kel::field<&tmXInvalTimeString::getInvalString>("InvalString"),
                  kel::field<&tmXInvalTimeString::getFormat>("Format"))
KEL_DEFINE_STRUCT(tmXCantMakeTime, "timelib::XCantMakeTime", kel::uncounted,
                  kel::field<&tmXCantMakeTime::getYear>("Year"),
                  kel::field<&tmXCantMakeTime::getMonth>("Month"),
                  kel::field<&tmXCantMakeTime::getDayOfMonth>("DayOfMonth"),
                  kel::field<&tmXCantMakeTime::getHour>("Hour"),
                  kel::field<&tmXCantMakeTime::getMinute>("Minute"),
                  kel::field<&tmXCantMakeTime::getSecond>("Second"))
KEL_DEFINE_STRUCT(tmXCantMakeTimeString, "timelib::XCantMakeTimeString", kel::uncounted,
                  kel::field<&tmXCantMakeTimeString::getTime>("Time"),
                  kel::field<&tmXCantMakeTimeString::getFormat>("Format"))
