#include "GrpcTripPeer.h"

#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>

#include "panel.grpc.pb.h"

namespace {

constexpr const char* g_asking = "D00";
constexpr const char* g_answering = "D01";

/// The server: knows each driver's stream.
class Distributor : public bench::Panel::Service {
public:
    using Stream = grpc::ServerReaderWriter<bench::Fid, bench::Fid>;

    grpc::Status Attach(grpc::ServerContext*, Stream* pStream) override {
        bench::Fid fid;
        if (!pStream->Read(&fid))
            return grpc::Status::OK;
        attach(fid.to(), pStream);
        pStream->Write(fid);
        while (pStream->Read(&fid))
            find(fid.to())->Write(fid);
        return grpc::Status::OK;
    }

private:
    void attach(const std::string& driver, Stream* pStream) {
        const std::lock_guard lock(m_mutex);
        m_streams[driver] = pStream;
    }
    Stream* find(const std::string& driver) {
        const std::lock_guard lock(m_mutex);
        return m_streams.at(driver);
    }

    std::mutex m_mutex;
    std::map<std::string, Stream*> m_streams;
};

}  // namespace

/// A driver's end.
class GrpcTripPeer::Stream {
public:
    Stream(const std::string& address, const std::string& driver)
        : m_pPanel(bench::Panel::NewStub(grpc::CreateChannel(address, grpc::InsecureChannelCredentials()))) {
        m_context.set_wait_for_ready(true);
        m_pStream = m_pPanel->Attach(&m_context);
        bench::Fid hello;
        hello.set_to(driver);
        write(hello);
        read(hello);
    }

    void write(const bench::Fid& fid) {
        if (!m_pStream->Write(fid))
            throw std::runtime_error("the stream has ended");
    }
    void read(bench::Fid& fid) {
        if (!m_pStream->Read(&fid))
            throw std::runtime_error("the stream has ended");
    }

private:
    grpc::ClientContext m_context;
    decltype(bench::Panel::NewStub(nullptr)) m_pPanel;
    std::unique_ptr<grpc::ClientReaderWriter<bench::Fid, bench::Fid>> m_pStream;
};

GrpcTripPeer::GrpcTripPeer(const std::string& directory) : m_address("unix:" + directory + "/grpc") {
    unlink((directory + "/grpc").c_str());
}

GrpcTripPeer::~GrpcTripPeer() = default;

void GrpcTripPeer::relay(const std::function<void()>& ready) {
    Distributor distributor;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(m_address, grpc::InsecureServerCredentials());
    builder.RegisterService(&distributor);
    const std::unique_ptr<grpc::Server> pServer = builder.BuildAndStart();
    if (!pServer)
        throw std::runtime_error("the server does not start");
    ready();
    pServer->Wait();
}

void GrpcTripPeer::answer(const std::function<void()>& ready) {
    Stream stream(m_address, g_answering);
    ready();
    bench::Fid fid;
    for (;;) {
        stream.read(fid);
        fid.set_to(g_asking);
        stream.write(fid);
    }
}

void GrpcTripPeer::openAsking() {
    m_pAsking = std::make_unique<Stream>(m_address, g_asking);
}

void GrpcTripPeer::ask(unsigned int number) {
    bench::Fid fid;
    fid.set_to(g_answering);
    fid.set_function("Q" + std::to_string(number % 1000));
    const std::string sent = fid.function();
    m_pAsking->write(fid);
    m_pAsking->read(fid);
    if (fid.function() != sent)
        throw std::runtime_error("another message came back");
}

std::unique_ptr<TripPeer> GrpcTripPeer::make(const std::string& directory) {
    return std::make_unique<GrpcTripPeer>(directory);
}
