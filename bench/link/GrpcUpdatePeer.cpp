#include "GrpcUpdatePeer.h"

#include <grpcpp/grpcpp.h>
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
    PanelService(PanelTarget& target, const std::function<void()>& completed)
        : m_target(target), m_completed(completed) {}

    grpc::Status Report(grpc::ServerContext*, grpc::ServerReader<bench::Batch>* pReader,
                        bench::Done*) override {
        // Tells the sender that the stream is there.
        pReader->SendInitialMetadata();
        bench::Batch batch;
        while (pReader->Read(&batch)) {
            for (const bench::Update& update : batch.updates())
                take(update);
            if (m_target.isComplete())
                m_completed();
        }
        return grpc::Status::OK;
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
    const std::function<void()>& m_completed;
};

/// A stream of batches to whoever listens there.
class BatchStream {
public:
    /// Returns when the stream is there.
    explicit BatchStream(const std::string& address) : m_pPanel(bench::Panel::NewStub(channel(address))) {
        m_context.set_wait_for_ready(true);
        m_pStream = m_pPanel->Report(&m_context, &m_done);
        m_pStream->WaitForInitialMetadata();
    }

    void write(const bench::Batch& batch) {
        if (!m_pStream->Write(batch))
            throw std::runtime_error("the stream has ended");
    }

private:
    static std::shared_ptr<grpc::Channel> channel(const std::string& address) {
        grpc::ChannelArguments arguments;
        // Who listens there may only just be starting.
        arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 20);
        return grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
    }

    grpc::ClientContext m_context;
    bench::Done m_done;
    decltype(bench::Panel::NewStub(nullptr)) m_pPanel;
    std::unique_ptr<grpc::ClientWriter<bench::Batch>> m_pStream;
};

/// Passes each batch on to the panel.
class RelayService : public bench::Panel::Service {
public:
    explicit RelayService(const std::string& panelAddress) : m_panelAddress(panelAddress) {}

    grpc::Status Report(grpc::ServerContext*, grpc::ServerReader<bench::Batch>* pReader,
                        bench::Done*) override {
        BatchStream panel(m_panelAddress);
        pReader->SendInitialMetadata();
        bench::Batch batch;
        while (pReader->Read(&batch))
            panel.write(batch);
        return grpc::Status::OK;
    }

private:
    const std::string m_panelAddress;
};

std::unique_ptr<grpc::Server> serve(const std::string& address, bench::Panel::Service& service) {
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.SetMaxReceiveMessageSize(-1);
    builder.RegisterService(&service);
    std::unique_ptr<grpc::Server> pServer = builder.BuildAndStart();
    if (!pServer)
        throw std::runtime_error("the server does not start");
    return pServer;
}

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
    /// All that wait, one at least.
    void take(bench::Batch& batch) {
        batch.clear_updates();
        std::unique_lock lock(m_mutex);
        m_added.wait(lock, [this] { return m_pending.updates_size() > 0; });
        const bool wasFull = m_pending.updates_size() >= m_limit;
        batch.Swap(&m_pending);
        if (wasFull)
            m_taken.notify_one();
    }

private:
    const int m_limit;
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::condition_variable m_taken;
    bench::Batch m_pending;
};

void fill(bench::Update& update, const Job& job, UpdateSeries& series, std::uint64_t number) {
    update.set_name(series.name(number));
    switch (job.kind) {
        case Job::EKind::States:
            return update.set_number(static_cast<int>(number));
        case Job::EKind::Events:
            return update.set_event(series.text(number));
        case Job::EKind::Texts:
            return update.set_text(series.text(number));
        case Job::EKind::Paced:
            return update.set_number(UpdateSeries::stamp());
    }
}

void sendInBatches(const Job& job, Outbox& outbox) {
    UpdateSeries series(job);
    for (std::uint64_t number = 0; number < job.count; ++number)
        outbox.add([&](bench::Update& update) { fill(update, job, series, number); });
}

void sendPaced(const Job& job, BatchStream& stream) {
    UpdateSeries series(job);
    bench::Batch batch;
    bench::Update& update = *batch.add_updates();
    for (std::uint64_t number = 0; number < job.count; ++number) {
        UpdateSeries::pause();
        fill(update, job, series, number);
        stream.write(batch);
    }
}

void sendInBursts(const Job& job, BatchStream& stream, BurstGate& gate) {
    UpdateSeries series(job);
    bench::Batch batch;
    for (std::uint64_t number = 0; number < job.count; ++number) {
        gate.pass(number);
        fill(*batch.add_updates(), job, series, number);
        if (!BurstGate::isBurstEnd(number))
            continue;
        stream.write(batch);
        batch.clear_updates();
    }
}

}  // namespace

GrpcUpdatePeer::GrpcUpdatePeer(const std::string& directory, int limit, bool hasRelay)
    : m_panelAddress("unix:" + directory + "/grpc"), m_driverAddress(m_panelAddress), m_limit(limit) {
    unlink((directory + "/grpc").c_str());
    if (!hasRelay)
        return;
    m_driverAddress = "unix:" + directory + "/grpc-relay";
    unlink((directory + "/grpc-relay").c_str());
    m_relay.emplace([this] { relay(); });
}

std::vector<pid_t> GrpcUpdatePeer::helpers() const {
    return m_relay ? std::vector<pid_t>{m_relay->pid()} : std::vector<pid_t>{};
}

void GrpcUpdatePeer::relay() const {
    RelayService service(m_panelAddress);
    serve(m_driverAddress, service)->Wait();
}

void GrpcUpdatePeer::receive(PanelTarget& target, const std::function<void()>& ready,
                             const std::function<void()>& completed) {
    PanelService service(target, completed);
    const std::unique_ptr<grpc::Server> pServer = serve(m_panelAddress, service);
    ready();
    pServer->Wait();
}

void GrpcUpdatePeer::send(const NextJob& nextJob, BurstGate& gate) {
    BatchStream stream(m_driverAddress);
    Outbox outbox(m_limit);
    // Writes only while jobs are sent in batches.
    const std::jthread sender([&] {
        for (bench::Batch batch;;) {
            outbox.take(batch);
            stream.write(batch);
        }
    });
    for (;;) {
        const Job job = nextJob();
        if (job.kind == Job::EKind::Paced)
            sendPaced(job, stream);
        else if (job.isInBursts)
            sendInBursts(job, stream, gate);
        else
            sendInBatches(job, outbox);
    }
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

std::unique_ptr<UpdatePeer> GrpcUpdatePeer::makeDeepRelayed(const std::string& directory) {
    return std::make_unique<GrpcUpdatePeer>(directory, 16384, true);
}

std::unique_ptr<UpdatePeer> GrpcUpdatePeer::makeShallowRelayed(const std::string& directory) {
    return std::make_unique<GrpcUpdatePeer>(directory, 300, true);
}
