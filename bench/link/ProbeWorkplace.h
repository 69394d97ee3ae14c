#pragma once

#include <filesystem>
#include <fstream>

#include "Files.h"
#include "PanelTarget.h"

/// The files of a workplace with so many probe drivers (D00, D01, ...), each in its driver process but for
/// the last so many, which are in the host's: drivers/, workplace.xml, and the directories work/ and queues/.
inline void writeProbeWorkplace(const std::filesystem::path& directory, int drivers, int driversInHost = 0) {
    for (const char* name : {"drivers", "work", "queues"})
        std::filesystem::create_directories(directory / name);
    std::filesystem::permissions(directory / "queues", std::filesystem::perms::owner_all);
    std::filesystem::create_symlink(builtFile("lib/benchmodules/probe.so"),
                                    directory / "drivers" / "probe.so");
    std::ofstream(directory / "drivers" / "probe.xml")
        << "<mfDriverModule><module_type name=\"probe.so\" type=\"Probe\" "
           "version=\"1.0\"/></mfDriverModule>\n";
    std::ofstream workplace(directory / "workplace.xml");
    workplace << "<workplaces><workplace id=\"0\">\n";
    for (int driver = 0; driver < drivers; ++driver) {
        const std::string id = PanelTarget::driverID(static_cast<std::size_t>(driver));
        workplace << "<mainframeDriver driverID=\"" << id
                  << "\" driverType=\"Probe\" version=\"1.0\" workingDirectory=\"data/" << id
                  << "\" interfaceType=\"" << (driver < drivers - driversInHost ? "queue" : "direct")
                  << "\"/>\n";
    }
    workplace << "</workplace></workplaces>\n";
}
