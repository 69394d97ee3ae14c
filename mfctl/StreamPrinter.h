#pragma once

#include <string>
#include <string_view>

#include "IStreamReader.h"
#include "Screen.h"

/// Prints what a reader of a stream gives, one line each. Main thread.
class StreamPrinter {
public:
    enum class EForm {
        Time,  ///< "14:03:22.181123 AXIS1 value AXIS1.POSITION = 12.5"
        Date,  ///< the same with the date before it
        Json,  ///< one object, with "cursor", the place of what comes after it
    };
    StreamPrinter(const Screen& screen, EForm form) : m_screen(screen), m_form(form) {}

    /// What the reader's last answer was: a record, or else a gap.
    void printRecord(const stream::IStreamReader& reader);
    void printGap(const stream::IStreamReader& reader);

    /// In which a line of that kind stands.
    static base::Table::EColour colourOf(std::string_view kind);

private:
    void printJson(const stream::IStreamReader& reader);

    const Screen m_screen;
    const EForm m_form;
    std::string m_json;
};
