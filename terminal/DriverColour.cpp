#include "DriverColour.h"

base::Table::EColour driverColour(const std::string& status) {
    using EColour = base::Table::EColour;
    if (status.starts_with("running"))
        return EColour::Good;
    if (status == "hung" || status == "ended")
        return EColour::Bad;
    return status == "parked" ? EColour::Faint : EColour::Warning;
}
