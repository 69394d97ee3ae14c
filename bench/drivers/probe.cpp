// The driver that is measured. FIDs tell it what to send; a thread of its own sends. It ends each piece of
// work with the event "DONE", whose text says when it began and how many messages were wrong.
//   SEND kind= count= name= value=   updates, as UpdateSeries has them
//   FIDS to= count= parameter=       FIDs to another driver, which was told EXPECT count=
//   TRIPS to= count= file=           FIDs that come back; the times go into the file, 32-bit nanoseconds
//   PEER id=                         where PINGs are answered to
//   LOAD to= beside= rate= count=    FIDs on a fixed schedule, numbered, to the drivers of a list (a,b,c) by
//                                    turns; each tenth time one to a driver of the other list as well
//   WATCH count= file=               how late so many of them come: the file gets the number of lost ones and
//   of
//                                    those out of order, 64 bits each, then the delays as with TRIPS

#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Job.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "UpdateSeries.h"

namespace {

class Probe : public MfdDriverBase {
public:
    ~Probe() override { stop(); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const_cast<Probe*>(this)->take(fid, parameters);
        return true;
    }
    bool deinitialize() override {
        stop();
        return true;
    }

private:
    /// FIDs that carry a number: a beginning and three digits.
    class NumberedFids {
    public:
        explicit NumberedFids(const std::string& beginning) {
            for (std::size_t i = 0; i < m_fids.size(); ++i) {
                const std::string digits = std::to_string(i);
                m_fids[i] = beginning + std::string(3 - digits.size(), '0') + digits;
            }
        }
        const std::string& operator[](std::uint64_t number) const { return m_fids[number % m_fids.size()]; }

    private:
        std::array<std::string, 1000> m_fids;
    };

    void take(const std::string& fid, const FIDParameterList& parameters) {
        switch (fid.front()) {
            case 'M':
                return takeMove(fid, parameters);
            case 'Q':
                return answer(fid);
            case 'A':
                return takeAnswer(fid);
            case 'N':
                return takeNumbered(fid, parameters);
            default:
                break;
        }
        const std::uint64_t count = std::stoull(parameters.value("count", "0"));
        if (fid == "EXPECT") {
            m_expected = count;
            m_moves = m_wrong = 0;
        } else if (fid == "PEER") {
            m_answers = NumberedFids(parameters.value("id") + ".A");
        } else if (fid == "SEND") {
            begin([this, job = job(parameters)] { send(job); });
        } else if (fid == "FIDS") {
            begin([this, to = parameters.value("to"), count,
                   hasParameter = parameters.contains("parameter")] { sendMoves(to, count, hasParameter); });
        } else if (fid == "TRIPS") {
            beginTrips(parameters.value("to"), count, parameters.value("file"));
        } else if (fid == "LOAD") {
            begin([this, to = words(parameters.value("to")), beside = words(parameters.value("beside")),
                   rate = std::stoll(parameters.value("rate")),
                   count] { sendOnSchedule(to, beside, rate, count); });
        } else if (fid == "WATCH") {
            beginWatch(count, parameters.value("file"));
        }
    }

    static Job job(const FIDParameterList& parameters) {
        return {static_cast<Job::EKind>(std::stoi(parameters.value("kind"))),
                std::stoull(parameters.value("count")), std::stoul(parameters.value("name")),
                std::stoul(parameters.value("value"))};
    }

    static std::vector<std::string> words(const std::string& text) {
        std::vector<std::string> found;
        std::istringstream list(text);
        for (std::string word; std::getline(list, word, ',');)
            found.push_back(word);
        return found;
    }

    template <class Work>
    void begin(Work work) {
        stop();
        m_thread = std::thread(std::move(work));
    }
    void stop() {
        if (m_thread.joinable())
            m_thread.join();
    }
    void done(std::int64_t time, std::uint64_t wrong) {
        panelState()->triggerEvent("DONE", std::to_string(time) + ' ' + std::to_string(wrong));
    }

    void send(const Job& job) {
        UpdateSeries series(job.nameSize, job.valueSize);
        IPanelState& panel = *panelState();
        const std::int64_t begin = UpdateSeries::now();
        for (std::uint64_t number = 0; number < job.count; ++number) {
            const std::string& name = series.name(number);
            switch (job.kind) {
                case Job::eStates:
                    panel.setStateValueInt(name, static_cast<int>(number));
                    break;
                case Job::eEvents:
                    panel.triggerEvent(name, series.text(number));
                    break;
                case Job::eTexts:
                    panel.setStateValue(name, series.text(number));
                    break;
                case Job::ePaced:
                    const timespec pause{0, 200'000};
                    nanosleep(&pause, nullptr);
                    panel.setStateValueInt(name, UpdateSeries::stamp());
                    break;
            }
        }
        done(begin, 0);
    }

    void sendMoves(const std::string& to, std::uint64_t count, bool hasParameter) {
        const NumberedFids fids(to + ".M");
        FIDParameterList parameters;
        if (hasParameter)
            parameters.add("position", "12.5");
        const std::int64_t begin = UpdateSeries::now();
        for (std::uint64_t number = 0; number < count; ++number)
            sendToDriver(fids[number], parameters);
        done(begin, 0);
    }
    void takeMove(const std::string& fid, const FIDParameterList& parameters) {
        if (fid != m_moveFids[m_moves] || (!parameters.empty() && parameters.begin()->second != "12.5"))
            ++m_wrong;
        if (++m_moves == m_expected)
            done(UpdateSeries::now(), m_wrong);
    }

    // Each FID carries when it was due, so that one that is sent late counts as late, and those behind it.
    void sendOnSchedule(const std::vector<std::string>& to, const std::vector<std::string>& beside,
                        std::int64_t rate, std::uint64_t count) {
        prctl(PR_SET_TIMERSLACK, 1);
        const std::int64_t begin = UpdateSeries::now() + 10'000'000;
        for (std::uint64_t number = 0; number < count; ++number) {
            const std::int64_t due = begin + static_cast<std::int64_t>(number) * 1'000'000'000 / rate;
            if (UpdateSeries::now() < due) {
                const timespec until{due / 1'000'000'000, due % 1'000'000'000};
                clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
            }
            FIDParameterList parameters;
            parameters.add("due", std::to_string(due));
            sendToDriver(to[number % to.size()] + ".N" + std::to_string(number / to.size()), parameters);
            if (number % 10 == 0 && !beside.empty())
                sendToDriver(beside[number / 10 % beside.size()] + ".BESIDE", {});
        }
        done(begin, 0);
    }
    void beginWatch(std::uint64_t count, const std::string& file) {
        m_file = file;
        m_times.clear();
        m_times.reserve(count);
        m_expected = count;
        m_next = m_lost = m_wrong = 0;
    }
    void takeNumbered(const std::string& fid, const FIDParameterList& parameters) {
        const std::int64_t delay = UpdateSeries::now() - std::stoll(parameters.value("due"));
        const std::uint64_t number = std::stoull(fid.substr(1));
        if (number < m_next) {
            ++m_wrong;
            return;
        }
        m_lost += number - m_next;
        m_next = number + 1;
        m_times.push_back(static_cast<std::uint32_t>(std::clamp<std::int64_t>(delay, 0, UINT32_MAX)));
        if (m_next == m_expected)
            writeWatched();
    }
    void writeWatched() {
        const std::string beginning = m_file + ".part";
        std::ofstream file(beginning, std::ios::binary);
        const std::array<std::uint64_t, 2> counts{m_lost, m_wrong};
        file.write(reinterpret_cast<const char*>(counts.data()), sizeof counts);
        file.write(reinterpret_cast<const char*>(m_times.data()),
                   static_cast<std::streamsize>(m_times.size() * sizeof m_times.front()));
        file.close();
        // Whoever waits for the file finds it whole.
        std::rename(beginning.c_str(), m_file.c_str());
    }

    void answer(const std::string& fid) {
        const std::string& answer = m_answers[std::stoull(fid.substr(1))];
        sendToDriver(answer, {});
    }
    // All on the thread that takes FIDs: one trip begins when the one before it is over.
    void beginTrips(const std::string& to, std::uint64_t count, const std::string& file) {
        m_questions = NumberedFids(to + ".Q");
        m_file = file;
        m_times.clear();
        m_times.reserve(count);
        m_warmUp = count / 10;
        m_trips = m_warmUp + count;
        m_trip = m_wrong = 0;
        m_sentAt = UpdateSeries::now();
        sendToDriver(m_questions[0], {});
    }
    void takeAnswer(const std::string& fid) {
        const std::int64_t now = UpdateSeries::now();
        if (fid != m_answerFids[m_trip])
            ++m_wrong;
        if (m_trip >= m_warmUp)
            m_times.push_back(static_cast<std::uint32_t>(now - m_sentAt));
        if (++m_trip < m_trips) {
            m_sentAt = UpdateSeries::now();
            sendToDriver(m_questions[m_trip], {});
            return;
        }
        std::ofstream(m_file, std::ios::binary)
            .write(reinterpret_cast<const char*>(m_times.data()),
                   static_cast<std::streamsize>(m_times.size() * sizeof m_times.front()));
        done(now, m_wrong);
    }

    NumberedFids m_answers{".A"};
    const NumberedFids m_moveFids{"M"};
    const NumberedFids m_answerFids{"A"};
    std::uint64_t m_expected = 0;
    std::uint64_t m_moves = 0;
    std::uint64_t m_wrong = 0;

    NumberedFids m_questions{".Q"};
    std::string m_file;
    std::vector<std::uint32_t> m_times;
    std::uint64_t m_warmUp = 0;
    std::uint64_t m_next = 0;
    std::uint64_t m_lost = 0;
    std::uint64_t m_trips = 0;
    std::uint64_t m_trip = 0;
    std::int64_t m_sentAt = 0;

    std::thread m_thread;
};

}  // namespace

MFD_DRIVER(Probe);
