// Enrolments a second of `pkixcmp serve` on loopback with keep-alive clients, counted a second of
// CPU time of the server, against the same work in this process: proof checked, request
// pre-processed, certificate issued and reply signed, serial number taken from the settings.
//
//   bench_serve PROGRAM [REQUESTS [CONNECTIONS]]

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "pkixcmp/PKIXCMP_Base.h"

namespace {

constexpr const char* caPath = "\\local\\bench";
constexpr const char* caName = "dn:CN=Bench Root";
constexpr int rounds = 5;

double cpuSeconds(const rusage& use) {
    auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// The key-less folder of this run, removed at the end.
struct Home {
    std::string path;
    Home() {
        char name[] = "/tmp/pkixcmp-bench.XXXXXX";
        if (mkdtemp(name) == nullptr) throw std::runtime_error("no temporary folder");
        path = name;
        setenv("PKIXCMP_HOME", name, 1);
    }
    ~Home() { std::filesystem::remove_all(path); }
};

CACMPT_BLOB makeRequest(PKIXCMP_Client& client) {
    RequestInfo request;
    request.RequestType = REQUEST_TYPE_INIT_CERTIFICATE;
    wcscpy(request.RecipientGeneralName, L"dn:CN=Bench Root");
    request.Subject.assign(L"CN=Bench Client, O=Bench");
    CACMPT_BLOB message;
    client.CertReqMessage_EncodeAndSign(&request, message);
    return message;
}

bool proofHolds(const CACMPT_BLOB& message) {
    CACMPT_ASN1BERDecodeBuffer buffer(message.data, message.size);
    asn1data::ASN1T_PKIMessage decoded;
    asn1data::ASN1C_PKIMessage control(buffer, decoded);
    if (control.Decode() != 0) return false;
    asn1data::ASN1T_CertReqMsg& request = decoded.body.u.ir->front();
    lSimpleCryptProv provider(request.certReq.certTemplate.publicKey.algorithm);
    ASN1BEREncodeBuffer encode;
    bool good = VerifyProofOfPosession(provider.handle, encode, request);
    CryptReleaseContext(provider.handle, 0);
    return good;
}

void issueInProcess(PKIXCMP_Server& server, const CACMPT_BLOB& message) {
    if (!proofHolds(message)) throw std::runtime_error("bad proof");
    CertificateInfo certificate;
    server.CertReqMessage_PreProcess(message, &certificate);
    CACMPT_BLOB reply;
    server.CertReqMessage_Process(&certificate, reply);
}

/// `pkixcmp serve` as a child.
class ServedCa {
public:
    explicit ServedCa(const char* program, int threads) {
        int out[2];
        if (pipe(out) != 0) throw std::runtime_error("pipe");
        child_ = fork();
        if (child_ == 0) {
            dup2(out[1], 1);
            close(out[0]);
            execl(program, program, "serve", "--ca", caPath, "--listen", "127.0.0.1:0", "--approve",
                  "all", "--threads", std::to_string(threads).c_str(), "--log", "/dev/null",
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(out[1]);
        readPort(out[0]);
        close(out[0]);
    }
    /// Stops it and gives the CPU seconds it took.
    double stop() {
        rusage use{};
        kill(child_, SIGTERM);
        wait4(child_, nullptr, 0, &use);
        child_ = -1;
        return cpuSeconds(use);
    }
    ~ServedCa() {
        if (child_ > 0) stop();
    }
    int port() const { return port_; }

private:
    void readPort(int from) {
        std::string text;
        char c;
        while (read(from, &c, 1) == 1 && c != '\n') text += c;
        std::size_t colon = text.rfind(':');
        if (colon == std::string::npos) throw std::runtime_error("the server did not start");
        port_ = std::atoi(text.c_str() + colon + 1);
    }
    pid_t child_ = -1;
    int port_ = 0;
};

/// One keep-alive connection that posts messages one after the other.
class Connection {
public:
    explicit Connection(int port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("connect");
        }
        int on = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~Connection() { close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void post(const CACMPT_BLOB& body) {
        std::string request =
            "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(body.size) +
            "\r\n\r\n";
        request.append(reinterpret_cast<const char*>(body.data), body.size);
        if (send(socket_, request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size())) {
            throw std::runtime_error("send");
        }
        readAnswer();
    }

private:
    void readAnswer() {
        std::string answer;
        std::size_t need = std::string::npos;
        char chunk[8192];
        while (answer.size() < need) {
            ssize_t n = recv(socket_, chunk, sizeof chunk, 0);
            if (n <= 0) throw std::runtime_error("the server closed the connection");
            answer.append(chunk, static_cast<std::size_t>(n));
            std::size_t end = answer.find("\r\n\r\n");
            if (need == std::string::npos && end != std::string::npos) {
                std::size_t length = answer.find("Content-Length: ");
                if (answer.compare(0, 12, "HTTP/1.1 200") != 0 || length == std::string::npos) {
                    throw std::runtime_error("unexpected answer: " + answer.substr(0, end));
                }
                need = end + 4 + std::strtoul(answer.c_str() + length + 16, nullptr, 10);
            }
        }
    }
    int socket_;
};

void load(int port, const CACMPT_BLOB& message, int requests, int connections) {
    std::atomic<int> left{requests};
    std::vector<std::thread> clients;
    for (int i = 0; i < connections; ++i) {
        clients.emplace_back([&] {
            Connection connection(port);
            while (left.fetch_sub(1) > 0) connection.post(message);
        });
    }
    for (std::thread& client : clients) client.join();
}

double servedCpuPerRequest(const char* program, const CACMPT_BLOB& message, int requests,
                           int connections, double& wall) {
    ServedCa idle(program, 2);
    load(idle.port(), message, 1, 1);
    double start = idle.stop();
    ServedCa ca(program, 2);
    auto begin = std::chrono::steady_clock::now();
    load(ca.port(), message, requests, connections);
    wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return (ca.stop() - start) / requests;
}

double inProcessCpuPerRequest(PKIXCMP_Server& server, const CACMPT_BLOB& message, int requests) {
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    for (int i = 0; i < requests; ++i) issueInProcess(server, message);
    getrusage(RUSAGE_SELF, &after);
    return (cpuSeconds(after) - cpuSeconds(before)) / requests;
}

int run(const char* program, int requests, int connections) {
    Home home;
    OldWndProv wnd(std::string("VAULT"), "");
    std::unique_ptr<PKIXCMP_Server> server(
        PKIXCMP_Server::GenerateRoot(caPath, L"CN=Bench Root", CACMPT_Extensions(), L"Bench", false,
                                     nullptr, 75, "\\\\.\\VAULT\\", CACMPT_Period::OneYear,
                                     CACMPT_Date(0, 0), nullptr, CACMPT_Period::OneDay, &wnd));
    std::unique_ptr<PKIXCMP_Client> client(PKIXCMP_Client::GenerateKeyPair(
        wnd, "", nullptr, 75, "\\\\.\\VAULT\\", AT_SIGNATURE, false));
    CACMPT_BLOB message = makeRequest(*client);

    std::vector<double> inProcess, served, rates;
    for (int i = 0; i < rounds; ++i) {
        inProcess.push_back(inProcessCpuPerRequest(*server, message, requests));
        double wall = 0;
        served.push_back(servedCpuPerRequest(program, message, requests, connections, wall));
        rates.push_back(requests / wall);
    }
    double in = median(inProcess), over = median(served);
    std::printf("enrolments, median of %d runs of %d, %s %s\n", rounds, requests, caName, "P-256");
    std::printf("in process   %8.1f us CPU  %8.0f a second and core\n", in * 1e6, 1 / in);
    std::printf("served       %8.1f us CPU  %8.0f a second and core, %.0f a second in all\n",
                over * 1e6, 1 / over, median(rates));
    std::printf("ratio served / in process  %.2f\n", over / in);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PROGRAM [REQUESTS [CONNECTIONS]]\n", argv[0]);
        return 2;
    }
    try {
        return run(argv[1], argc > 2 ? std::atoi(argv[2]) : 2000,
                   argc > 3 ? std::atoi(argv[3]) : 8);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
