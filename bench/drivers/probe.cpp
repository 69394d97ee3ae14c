// The driver that is measured. FIDs tell it what to send; a thread of its own sends. It ends each piece of
// work with the event "DONE", whose text says when it began and how many messages were wrong.
//   SEND kind= count= name= value= names=
//       updates, as UpdateSeries has them; with gate= in bursts, as the BurstGate of that file lets them
//       pass; with to= as FIDs to that driver, which was told PANEL with the same
//   REPORT count= file= what= to= gate=
//       updates, or with what=events events, with what=fids FIDs to that driver, and then a FID to itself,
//       which comes back when the host has taken them all; the file gets when it began and when the FID was
//       back, 64 bits each; with gate= FIDs in bursts, during which the HoldGate of that file holds that
//       driver
//   FILL to= count=
//       an update, and then FIDs to a driver that was told EXPECT count=, each as long as a message can be
//   FIDS to= count= parameter=
//       FIDs to another driver, which was told EXPECT count=
//   TRIPS to= warmup= time= file=
//       FIDs that come back, for so many milliseconds; the times of those after the warm-up go into the file,
//       32-bit nanoseconds
//   PEER id=
//       where PINGs are answered to
//   LOAD to= beside= rate= count=
//       FIDs on a fixed schedule, numbered, to the drivers of a list (a,b,c) by turns; each tenth time one to
//       a driver of the other list as well
//   WATCH count= file=
//       how late so many of them come: the file gets the number of lost ones, of those out of order, and when
//       the first was due, 64 bits each, then the delays as with TRIPS

#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BurstGate.h"
#include "HoldGate.h"
#include "Job.h"
#include "MessageCodes.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "UpdateCheck.h"
#include "UpdateSeries.h"

namespace {

class Probe : public MfdDriverBase {
public:
    Probe() { sem_init(&m_passed, 0, 0); }
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
    /// FIDs that carry a number: a beginning and three digits. Made when the first is asked for, so that a
    /// driver starts no later for them. Used by one thread at a time.
    class NumberedFids {
    public:
        explicit NumberedFids(std::string beginning) : m_beginning(std::move(beginning)) {}

        const std::string& operator[](std::uint64_t number) const {
            if (m_fids.empty())
                make();
            return m_fids[number % s_count];
        }

    private:
        static constexpr std::size_t s_count = 1000;

        void make() const {
            m_fids.reserve(s_count);
            for (std::size_t i = 0; i < s_count; ++i) {
                const std::string digits = std::to_string(i);
                m_fids.push_back(m_beginning + std::string(3 - digits.size(), '0') + digits);
            }
        }

        std::string m_beginning;
        mutable std::vector<std::string> m_fids;
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
            case 'V':
                return takeValue(parameters);
            default:
                break;
        }
        const std::uint64_t count = std::stoull(parameters.value("count", "0"));
        if (fid == "FULL") {
            countMove();
        } else if (fid == "EXPECT") {
            m_expected = count;
            m_moves = m_wrong = 0;
        } else if (fid == "PEER") {
            m_answers = NumberedFids(parameters.value("id") + ".A");
        } else if (fid == "SEND") {
            begin([this, job = job(parameters), gate = parameters.value("gate"),
                   to = parameters.value("to")] { to.empty() ? send(job, gate) : sendAsFids(job, to); });
        } else if (fid == "PANEL") {
            m_check.begin(job(parameters));
        } else if (fid == "REPORT") {
            m_file = parameters.value("file");
            begin([this, count, what = parameters.value("what"), to = parameters.value("to"),
                   gate = parameters.value("gate")] {
                gate.empty() ? report(count, what, to) : reportInBursts(count, to, gate);
            });
        } else if (fid == "REPORTED") {
            writeReport();
        } else if (fid == "PASSED") {
            sem_post(&m_passed);
        } else if (fid == "HOLD") {
            if (!m_pHeld)
                m_pHeld = std::make_unique<HoldGate>(parameters.value("gate"));
            m_pHeld->hold();
        } else if (fid == "RELEASED") {
            m_pHeld->end();
        } else if (fid == "FILL") {
            begin([this, to = parameters.value("to"), count] { fill(to, count); });
        } else if (fid == "FIDS") {
            begin([this, to = parameters.value("to"), count,
                   hasParameter = parameters.contains("parameter")] { sendMoves(to, count, hasParameter); });
        } else if (fid == "TRIPS") {
            beginTrips(parameters);
        } else if (fid == "LOAD") {
            begin([this, to = words(parameters.value("to")), beside = words(parameters.value("beside")),
                   rate = std::stoll(parameters.value("rate")),
                   count] { sendOnSchedule(to, beside, rate, count); });
        } else if (fid == "WATCH") {
            beginWatch(count, parameters.value("file"));
        }
    }

    static Job job(const FIDParameterList& parameters) {
        Job job{static_cast<Job::EKind>(std::stoi(parameters.value("kind"))),
                std::stoull(parameters.value("count")), std::stoul(parameters.value("name")),
                std::stoul(parameters.value("value"))};
        job.names = std::stoul(parameters.value("names", std::to_string(Job::s_names)));
        job.isInBursts = parameters.contains("gate");
        return job;
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

    void send(const Job& job, const std::string& gateFile) {
        UpdateSeries series(job);
        const auto pGate = job.isInBursts ? std::make_unique<BurstGate>(gateFile) : nullptr;
        IPanelState& panel = *panelState();
        const std::int64_t begin = UpdateSeries::now();
        for (std::uint64_t number = 0; number < job.count; ++number) {
            const std::string& name = series.name(number);
            if (pGate)
                pGate->pass(number);
            switch (job.kind) {
                case Job::EKind::States:
                    panel.setStateValueInt(name, static_cast<int>(number));
                    break;
                case Job::EKind::Events:
                    panel.triggerEvent(name, series.text(number));
                    break;
                case Job::EKind::Texts:
                    panel.setStateValue(name, series.text(number));
                    break;
                case Job::EKind::Paced:
                    UpdateSeries::pause();
                    panel.setStateValueInt(name, UpdateSeries::stamp());
                    break;
            }
        }
        done(begin, 0);
    }

    // A panel that is a driver gets values as FIDs, each with the driver's ID before the name.
    void sendAsFids(const Job& job, const std::string& to) {
        const UpdateSeries series(job);
        const std::string fid = to + ".VALUE";
        const std::string prefix = configuration().driverID + ".";
        const std::int64_t begin = UpdateSeries::now();
        for (std::uint64_t number = 0; number < job.count; ++number) {
            FIDParameterList parameters;
            parameters.add("id", prefix + series.name(number));
            parameters.add("value", std::to_string(number));
            sendToDriver(fid, parameters);
        }
        done(begin, 0);
    }
    void takeValue(const FIDParameterList& parameters) {
        const std::string id = parameters.value("id");
        m_check.number(std::string_view(id).substr(4), std::atoi(parameters.value("value").c_str()));
        if (m_check.complete())
            done(m_check.last(), m_check.wrong());
    }

    // The numbers go on from one report to the next, so that each value differs from the one before it.
    void report(std::uint64_t count, const std::string& what, const std::string& to) {
        const UpdateSeries series;
        const NumberedFids fids(to + ".M");
        IPanelState& panel = *panelState();
        m_beganAt = UpdateSeries::now();
        for (const std::uint64_t end = m_reported + count; m_reported < end; ++m_reported) {
            if (what == "fids")
                sendToDriver(fids[m_reported], {});
            else if (what == "events")
                panel.triggerEvent(series.name(m_reported), "moved");
            else
                panel.setStateValueInt(series.name(m_reported), static_cast<int>(m_reported));
        }
        sendToDriver(configuration().driverID + ".REPORTED", {});
    }
    void reportInBursts(std::uint64_t count, const std::string& to, const std::string& gateFile) {
        const NumberedFids fids(to + ".M");
        HoldGate gate(gateFile);
        FIDParameterList hold;
        hold.add("gate", gateFile);
        m_beganAt = UpdateSeries::now();
        for (std::uint64_t number = 0; number < count;) {
            gate.begin();
            sendToDriver(to + ".HOLD", hold);
            for (const std::uint64_t end = std::min(number + HoldGate::s_size, count); number < end; ++number)
                sendToDriver(fids[number], {});
            sendToDriver(to + ".RELEASED", {});
            sendToDriver(configuration().driverID + ".PASSED", {});
            await(m_passed);
            gate.release();
        }
        sendToDriver(configuration().driverID + ".REPORTED", {});
    }
    void writeReport() {
        const std::array<std::int64_t, 2> times{m_beganAt, UpdateSeries::now()};
        write([&](std::ofstream& file) {
            file.write(reinterpret_cast<const char*>(times.data()), sizeof times);
        });
    }

    // Whoever holds up the update holds up the FIDs after it.
    void fill(const std::string& to, std::uint64_t count) {
        const std::string fid = to + ".FULL";
        FIDParameterList parameters;
        // The code, the FID with its length, and how many pairs there are.
        std::size_t room = protocol::maximumLength - protocol::dispatchFID.size() - 1 - fid.size() - 1;
        for (; room > 0; room -= std::min<std::size_t>(room, s_pairLength))
            parameters.add("n", std::string(std::min<std::size_t>(room, s_pairLength) - s_pairOverhead, 'v'));
        panelState()->setStateValueInt(UpdateSeries().name(0), 0);
        for (std::uint64_t number = 0; number < count; ++number)
            sendToDriver(fid, parameters);
        done(UpdateSeries::now(), 0);
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
        countMove();
    }
    void countMove() {
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
        m_firstDue = 0;
    }
    void takeNumbered(const std::string& fid, const FIDParameterList& parameters) {
        const std::int64_t due = std::stoll(parameters.value("due"));
        const std::int64_t delay = UpdateSeries::now() - due;
        const std::uint64_t number = std::stoull(fid.substr(1));
        if (number < m_next) {
            ++m_wrong;
            return;
        }
        m_lost += number - m_next;
        m_next = number + 1;
        if (m_times.empty())
            m_firstDue = due;
        m_times.push_back(static_cast<std::uint32_t>(std::clamp<std::int64_t>(delay, 0, UINT32_MAX)));
        if (m_next == m_expected)
            writeWatched();
    }
    void writeWatched() {
        write([this](std::ofstream& file) {
            const std::array<std::uint64_t, 3> numbers{m_lost, m_wrong,
                                                       static_cast<std::uint64_t>(m_firstDue)};
            file.write(reinterpret_cast<const char*>(numbers.data()), sizeof numbers);
            writeTimes(file);
        });
    }
    void writeTimes(std::ofstream& file) {
        file.write(reinterpret_cast<const char*>(m_times.data()),
                   static_cast<std::streamsize>(m_times.size() * sizeof m_times.front()));
    }
    /// Whoever waits for the file finds it whole.
    template <class Write>
    void write(Write write) {
        const std::string beginning = m_file + ".part";
        std::ofstream file(beginning, std::ios::binary);
        write(file);
        file.close();
        std::rename(beginning.c_str(), m_file.c_str());
    }

    void answer(const std::string& fid) {
        const std::string& answer = m_answers[std::stoull(fid.substr(1))];
        sendToDriver(answer, {});
    }
    // All on the thread that takes FIDs: one trip begins when the one before it is over.
    void beginTrips(const FIDParameterList& parameters) {
        m_questions = NumberedFids(parameters.value("to") + ".Q");
        m_file = parameters.value("file");
        m_times.clear();
        m_times.reserve(1'000'000);
        m_trip = m_wrong = 0;
        m_sentAt = UpdateSeries::now();
        m_warmUntil = m_sentAt + std::stoll(parameters.value("warmup")) * 1'000'000;
        m_tripsUntil = m_warmUntil + std::stoll(parameters.value("time")) * 1'000'000;
        sendToDriver(m_questions[0], {});
    }
    void takeAnswer(const std::string& fid) {
        const std::int64_t now = UpdateSeries::now();
        if (fid != m_answerFids[m_trip])
            ++m_wrong;
        if (m_sentAt >= m_warmUntil)
            m_times.push_back(static_cast<std::uint32_t>(now - m_sentAt));
        ++m_trip;
        if (now < m_tripsUntil) {
            m_sentAt = UpdateSeries::now();
            sendToDriver(m_questions[m_trip], {});
            return;
        }
        write([this](std::ofstream& file) { writeTimes(file); });
        done(now, m_wrong);
    }

    /// Of a pair of parameters in a message: what the longest one takes, and what it takes beside its value.
    static constexpr std::size_t s_pairLength = 200;
    static constexpr std::size_t s_pairOverhead = 3;

    NumberedFids m_answers{".A"};
    const NumberedFids m_moveFids{"M"};
    const NumberedFids m_answerFids{"A"};
    std::uint64_t m_expected = 0;
    std::uint64_t m_moves = 0;
    std::uint64_t m_wrong = 0;

    NumberedFids m_questions{".Q"};
    std::string m_file;
    std::vector<std::uint32_t> m_times;
    std::uint64_t m_next = 0;
    std::uint64_t m_lost = 0;
    std::int64_t m_firstDue = 0;
    std::uint64_t m_trip = 0;
    std::int64_t m_sentAt = 0;
    std::int64_t m_warmUntil = 0;
    std::int64_t m_tripsUntil = 0;

    UpdateCheck m_check;
    std::int64_t m_beganAt = 0;
    std::uint64_t m_reported = 0;
    std::unique_ptr<HoldGate> m_pHeld;
    sem_t m_passed{};

    std::thread m_thread;
};

}  // namespace

MFD_DRIVER(Probe);
