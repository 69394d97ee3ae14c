#include "GrpcUpdatePeer.h"

#include <grpcpp/grpcpp.h>
#include <time.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "UpdateSeries.h"
#include "panel.grpc.pb.h"

namespace {

class PanelService : public bench::Panel::Service {
public:
    explicit PanelService(PanelTarget& target) : m_target(target) {}

    grpc::Status Report(grpc::ServerContext*, grpc::ServerReader<bench::Batch>* pReader,
                        bench::Done*) override {
        // Tells the sender that the stream is there.
        pReader->SendInitialMetadata();
        bench::Batch batch;
        while (pReader->Read(&batch)) {
            for (const bench::Update& update : batch.updates())
                take(update);
            if (m_target.isComplete()) {
                const std::lock_guard lock(m_mutex);
                m_isComplete = true;
                m_completed.notify_one();
            }
        }
        return grpc::Status::OK;
    }

    void waitUntilComplete() {
        std::unique_lock lock(m_mutex);
        m_completed.wait(lock, [this] { return m_isComplete; });
    }

private:
    void take(const bench::Update& update) {
        const std::string id = "D00." + update.name();
        switch (update.value_case()) {
            case bench::Update::kNumber:
                return m_target.setStateValueInt(id, update.number());
            case bench::Update::kText:
                return m_target.setStateValue(id, update.text());
            case bench::Update::kEvent:
                return m_target.triggerEvent(id, update.event());
            default:
                break;
        }
    }

    PanelTarget& m_target;
    std::mutex m_mutex;
    std::condition_variable m_completed;
    bool m_isComplete = false;
};

/// Where a driver's thread puts updates down for the thread that sends them.
class Outbox {
public:
    explicit Outbox(int limit) : m_limit(limit) {}

    /// Waits while as many wait as may.
    template <class Fill>
    void add(Fill fill) {
        std::unique_lock lock(m_mutex);
        m_taken.wait(lock, [this] { return m_pending.updates_size() < m_limit; });
        fill(*m_pending.add_updates());
        if (m_pending.updates_size() == 1)
            m_added.notify_one();
    }
    void close() {
        const std::lock_guard lock(m_mutex);
        m_isClosed = true;
        m_added.notify_one();
    }
    /// All that wait; false when there will be none any more.
    bool take(bench::Batch& batch) {
        batch.clear_updates();
        std::unique_lock lock(m_mutex);
        m_added.wait(lock, [this] { return m_pending.updates_size() > 0 || m_isClosed; });
        const bool wasFull = m_pending.updates_size() >= m_limit;
        batch.Swap(&m_pending);
        if (wasFull)
            m_taken.notify_one();
        return batch.updates_size() > 0;
    }

private:
    const int m_limit;
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::condition_variable m_taken;
    bench::Batch m_pending;
    bool m_isClosed = false;
};

void fill(bench::Update& update, const Job& job, UpdateSeries& series, std::uint64_t number) {
    update.set_name(series.name(number));
    switch (job.kind) {
        case Job::eStates:
            return update.set_number(static_cast<int>(number));
        case Job::eEvents:
            return update.set_event(series.text(number));
        case Job::eTexts:
            return update.set_text(series.text(number));
        case Job::ePaced:
            return update.set_number(UpdateSeries::stamp());
    }
}

}  // namespace

GrpcUpdatePeer::GrpcUpdatePeer(const std::string& directory, int limit)
    : m_address("unix:" + directory + "/grpc"), m_limit(limit) {
    unlink((directory + "/grpc").c_str());
}

void GrpcUpdatePeer::receive(PanelTarget& target, const std::function<void()>& ready) {
    PanelService service(target);
    grpc::ServerBuilder builder;
    builder.AddListeningPort(m_address, grpc::InsecureServerCredentials());
    builder.SetMaxReceiveMessageSize(-1);
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> pServer = builder.BuildAndStart();
    if (!pServer)
        throw std::runtime_error("the server does not start");
    ready();
    service.waitUntilComplete();
    // The sender has closed its stream, or does so now.
    pServer->Shutdown();
}

void GrpcUpdatePeer::send(const Job& job, const std::function<void()>& ready) {
    const auto pPanel =
        bench::Panel::NewStub(grpc::CreateChannel(m_address, grpc::InsecureChannelCredentials()));
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    bench::Done done;
    const auto pStream = pPanel->Report(&context, &done);
    pStream->WaitForInitialMetadata();
    Outbox outbox(m_limit);
    std::thread sender([&] {
        bench::Batch batch;
        while (outbox.take(batch))
            if (!pStream->Write(batch))
                throw std::runtime_error("the stream has ended");
    });
    ready();
    UpdateSeries series(job.nameSize, job.valueSize);
    for (std::uint64_t number = 0; number < job.count; ++number) {
        if (job.kind == Job::ePaced) {
            const timespec pause{0, 200'000};
            nanosleep(&pause, nullptr);
        }
        outbox.add([&](bench::Update& update) { fill(update, job, series, number); });
    }
    outbox.close();
    sender.join();
    pStream->WritesDone();
    pStream->Finish();
}

std::unique_ptr<UpdatePeer> GrpcUpdatePeer::makeDeep(const std::string& directory) {
    return std::make_unique<GrpcUpdatePeer>(directory, 16384);
}

std::unique_ptr<UpdatePeer> GrpcUpdatePeer::makeShallow(const std::string& directory) {
    return std::make_unique<GrpcUpdatePeer>(directory, 300);
}

std::unique_ptr<UpdatePeer> GrpcUpdatePeer::makeSmall(const std::string& directory) {
    return std::make_unique<GrpcUpdatePeer>(directory, 16);
}
