#include "ParkJudge.h"

void ParkJudge::parkTyped(const std::string& driverID, std::uint32_t timesParked) {
    Typed& typed = m_typed[driverID];
    if (typed.parks + typed.unparks == 0)
        typed.timesParked = timesParked;
    ++typed.parks;
}

void ParkJudge::unparkTyped(const std::string& driverID) {
    ++m_typed[driverID].unparks;
}

std::vector<std::string> ParkJudge::judge(const std::set<std::string>& marks,
                                          const std::map<std::string, std::uint32_t>& timesParked) {
    std::vector<std::string> wrong;
    for (const std::string& driverID : m_marks)
        if (!marks.contains(driverID) && m_typed[driverID].unparks == 0)
            wrong.push_back("the mark of " + driverID + " was lost");
    for (const std::string& driverID : marks)
        if (!m_marks.contains(driverID) && m_typed[driverID].parks == 0)
            wrong.push_back(driverID + " was marked, and nobody asked for it");
    for (const auto& [driverID, typed] : m_typed) {
        const auto now = timesParked.find(driverID);
        const bool isConfirmed = now != timesParked.end() && now->second > typed.timesParked;
        if (typed.parks == 1 && typed.unparks == 0 && isConfirmed && !marks.contains(driverID))
            wrong.push_back("the host had said that " + driverID + " is parked, and its mark was lost");
    }
    m_marks = marks;
    m_typed.clear();
    return wrong;
}
