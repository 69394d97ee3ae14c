#include "AlarmNotice.h"

std::string alarmNotice(std::size_t inSight) {
    if (inSight == 0)
        return {};
    return std::to_string(inSight) + (inSight == 1 ? " alarm" : " alarms");
}
