// korva-load: an HTTP/1.1 load client for loopback benchmarks of korva-gateway and of a
// reference server.
//
// Each of N keep-alive connections sends one request at a time, back to back, for a fixed
// duration. With --user, a connection first sends the request without credentials, takes the
// 401 digest challenge (MD5 or SHA-256, qop=auth) and then answers that one nonce on every
// later request with a rising nonce count and a cnonce fixed per connection; a later 401 (an
// expired or stale nonce) is counted and its new challenge taken. Without --user the requests
// go out bare. Connections are spread over --threads io_contexts, one thread each, so no
// connection state is shared between threads.
//
// With --rate the requests are paced open-loop (request n is due n/rate seconds after the start)
// and a body file holding "{dev}" or "{ns}" becomes a template: the alarm injector of the
// fan-out and soak scripts, which puts a device number and a send time into every alarm.
//
// Reports requests/s, status counts, transport errors and latency percentiles (request written
// to answer read), as text or as one JSON line (--json). Bounded: --duration (at most one hour)
// and --max-requests; a connection that does not answer is abandoned at the deadline plus
// --grace seconds. Only loopback addresses are accepted. Answers must carry Content-Length (a
// streamed answer without it is not read to its end).
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// After the standard headers: Asio's awaitable.hpp uses std::exchange without <utility>.
#include <boost/asio.hpp>

namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;

struct Options {
    std::string host = "127.0.0.1";
    unsigned short port = 0;
    std::string method = "GET";
    std::string path = "/";
    std::string body;
    std::string contentType = "application/xml";
    std::string user;
    std::string password;
    int connections = 64;
    int threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    double duration = 10;
    double warmup = 0;
    double grace = 5;
    uint64_t maxRequests = UINT64_MAX;
    double rate = 0;       // requests per second over all connections; 0: as fast as answered
    uint64_t devices = 1;  // the range of {dev} in a body template
    bool templated = false;
    bool json = false;
};

// ---- digest ----

class Hasher {
  public:
    explicit Hasher(const std::string& algorithm) {
        std::string upper = algorithm;
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        m_md = upper.rfind("SHA-256", 0) == 0 ? EVP_sha256() : EVP_md5();
        m_ctx = EVP_MD_CTX_new();
    }
    ~Hasher() { EVP_MD_CTX_free(m_ctx); }
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    // Lower-case hexadecimal digest of text.
    std::string hex(const std::string& text) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestInit_ex(m_ctx, m_md, nullptr);
        EVP_DigestUpdate(m_ctx, text.data(), text.size());
        EVP_DigestFinal_ex(m_ctx, digest, &length);
        static const char kHex[] = "0123456789abcdef";
        std::string out(length * 2, '0');
        for (unsigned int i = 0; i < length; ++i) {
            out[2 * i] = kHex[digest[i] >> 4];
            out[2 * i + 1] = kHex[digest[i] & 15];
        }
        return out;
    }

  private:
    const EVP_MD* m_md;
    EVP_MD_CTX* m_ctx;
};

// The parameters of a "Digest k=v, k="v"" challenge, keys lower-cased.
std::map<std::string, std::string> challengeParams(const std::string& value) {
    std::map<std::string, std::string> params;
    size_t i = value.find(' ');
    while (i != std::string::npos && i < value.size()) {
        while (i < value.size() && (value[i] == ' ' || value[i] == ',')) ++i;
        const size_t eq = value.find('=', i);
        if (eq == std::string::npos) break;
        std::string key = value.substr(i, eq - i);
        std::transform(key.begin(), key.end(), key.begin(), ::tolower);
        i = eq + 1;
        std::string val;
        if (i < value.size() && value[i] == '"') {
            const size_t end = value.find('"', i + 1);
            if (end == std::string::npos) break;
            val = value.substr(i + 1, end - i - 1);
            i = end + 1;
        } else {
            const size_t end = value.find(',', i);
            val = value.substr(i, end == std::string::npos ? std::string::npos : end - i);
            i = end;
        }
        params[key] = val;
    }
    return params;
}

// One connection's answer to one challenge: HA1 and HA2 are fixed, each request hashes once.
class DigestState {
  public:
    DigestState(const Options& options, const std::string& challenge, const std::string& cnonce) {
        auto params = challengeParams(challenge);
        m_algorithm = params.count("algorithm") ? params["algorithm"] : "";
        m_hasher = std::make_unique<Hasher>(m_algorithm.empty() ? "MD5" : m_algorithm);
        m_realm = params["realm"];
        m_nonce = params["nonce"];
        m_opaque = params.count("opaque") ? params["opaque"] : "";
        m_cnonce = cnonce;
        m_user = options.user;
        m_uri = options.path;
        m_ha1 = m_hasher->hex(options.user + ":" + m_realm + ":" + options.password);
        m_ha2 = m_hasher->hex(options.method + ":" + options.path);
    }

    std::string nextHeader() {
        char nc[9];
        std::snprintf(nc, sizeof nc, "%08x", ++m_count);
        const std::string response =
            m_hasher->hex(m_ha1 + ":" + m_nonce + ":" + nc + ":" + m_cnonce + ":auth:" + m_ha2);
        std::string header = "Authorization: Digest username=\"" + m_user + "\", realm=\"" +
                             m_realm + "\", nonce=\"" + m_nonce + "\", uri=\"" + m_uri +
                             "\", qop=auth, nc=" + nc + ", cnonce=\"" + m_cnonce +
                             "\", response=\"" + response + "\"";
        if (!m_algorithm.empty()) header += ", algorithm=" + m_algorithm;
        if (!m_opaque.empty()) header += ", opaque=\"" + m_opaque + "\"";
        return header + "\r\n";
    }

  private:
    std::unique_ptr<Hasher> m_hasher;
    std::string m_algorithm, m_realm, m_nonce, m_opaque, m_cnonce, m_user, m_uri, m_ha1, m_ha2;
    uint32_t m_count = 0;
};

// ---- statistics (one per thread, merged at the end) ----

struct Stats {
    std::array<uint64_t, 600> statuses{};
    uint64_t errors = 0;      // transport errors and unparsable answers
    uint64_t reconnects = 0;  // connections opened again after a close
    uint64_t challenges = 0;  // challenges taken (first one per connection included)
    int live = 0;             // connections of this thread still alive
    std::vector<uint32_t> latencyUs;

    void merge(const Stats& other) {
        for (size_t i = 0; i < statuses.size(); ++i) statuses[i] += other.statuses[i];
        errors += other.errors;
        reconnects += other.reconnects;
        challenges += other.challenges;
        latencyUs.insert(latencyUs.end(), other.latencyUs.begin(), other.latencyUs.end());
    }
};

struct Shared {
    Options options;
    Clock::time_point start, measureFrom, deadline;
    std::atomic<uint64_t> issued{0};
};

// One parsed answer head.
struct Head {
    int status = 0;
    size_t headLength = 0;
    size_t contentLength = 0;
    bool close = false;
    std::string authenticate;
};

bool startsWithNoCase(const char* p, const char* end, const char* name) {
    const size_t n = std::strlen(name);
    if (static_cast<size_t>(end - p) < n) return false;
    for (size_t i = 0; i < n; ++i) {
        if (std::tolower(static_cast<unsigned char>(p[i])) != name[i]) return false;
    }
    return true;
}

// Parses the head at the start of data; nullopt while incomplete, status 0 when malformed.
std::optional<Head> parseHead(const char* data, size_t size) {
    const char* end = static_cast<const char*>(memmem(data, size, "\r\n\r\n", 4));
    if (end == nullptr) return std::nullopt;
    Head head;
    head.headLength = static_cast<size_t>(end - data) + 4;
    if (head.headLength < 13 || std::memcmp(data, "HTTP/1.", 7) != 0) return head;
    head.status = std::atoi(data + 9);
    const char* line = static_cast<const char*>(memchr(data, '\n', size)) + 1;
    while (line < end) {
        const char* next =
            static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end + 2 - line)));
        if (next == nullptr) break;
        const char* colon =
            static_cast<const char*>(memchr(line, ':', static_cast<size_t>(next - line)));
        if (colon != nullptr) {
            const char* value = colon + 1;
            while (value < next && *value == ' ') ++value;
            std::string text(value, static_cast<size_t>(next - value));
            while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.pop_back();
            if (startsWithNoCase(line, colon, "content-length")) {
                head.contentLength = std::strtoull(text.c_str(), nullptr, 10);
            } else if (startsWithNoCase(line, colon, "www-authenticate")) {
                head.authenticate = text;
            } else if (startsWithNoCase(line, colon, "connection")) {
                head.close = text.find("close") != std::string::npos;
            }
        }
        line = next + 1;
    }
    return head;
}

// One keep-alive connection driving requests until the deadline or the request budget.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(asio::io_context& io, Shared& shared, Stats& stats, int index)
        : m_io(io), m_socket(io), m_pacer(io), m_shared(shared), m_stats(stats) {
        std::mt19937_64 random(static_cast<uint64_t>(index) * 7919 +
                               static_cast<uint64_t>(Clock::now().time_since_epoch().count()));
        char cnonce[17];
        std::snprintf(cnonce, sizeof cnonce, "%016llx", static_cast<unsigned long long>(random()));
        m_cnonce = cnonce;
        m_buffer.resize(64 * 1024);
        m_stats.live++;
    }
    ~Connection() { m_stats.live--; }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void start() { connect(); }

  private:
    const Options& options() const { return m_shared.options; }
    bool authenticated() const { return !options().user.empty(); }

    void connect() {
        if (Clock::now() >= m_shared.deadline) return;
        m_socket = tcp::socket(m_io);
        m_filled = 0;
        m_digest.reset();
        tcp::endpoint endpoint(asio::ip::make_address(options().host), options().port);
        m_socket.async_connect(endpoint, [self = shared_from_this()](boost::system::error_code ec) {
            if (ec) {
                self->m_stats.errors++;
                return;  // a refused connection is not retried: the server is gone
            }
            self->m_socket.set_option(tcp::no_delay(true));
            self->m_challenging = self->authenticated();
            self->sendNext();
        });
    }

    // The body with "{dev}" replaced by the request's sequence number modulo --devices and
    // "{ns}" by the steady clock in nanoseconds at sending.
    std::string body(uint64_t sequence) const {
        const Options& o = options();
        if (!o.templated) return o.body;
        std::string text = o.body;
        const auto replace = [&text](const std::string& key, const std::string& value) {
            for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at)) {
                text.replace(at, key.size(), value);
                at += value.size();
            }
        };
        replace("{dev}", std::to_string(sequence % o.devices));
        replace("{ns}", std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                           Clock::now().time_since_epoch())
                                           .count()));
        return text;
    }

    std::string request(uint64_t sequence) {
        const Options& o = options();
        std::string text = o.method + " " + o.path + " HTTP/1.1\r\nHost: " + o.host + ":" +
                           std::to_string(o.port) + "\r\n";
        if (m_digest && !m_challenging) text += m_digest->nextHeader();
        if (!o.body.empty() || o.method == "PUT" || o.method == "POST") {
            const std::string content = body(sequence);
            text += "Content-Type: " + o.contentType +
                    "\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" + content;
        } else {
            text += "\r\n";
        }
        return text;
    }

    void sendNext() {
        if (Clock::now() >= m_shared.deadline) return close();
        uint64_t sequence = 0;
        if (!m_challenging) {
            sequence = m_shared.issued.fetch_add(1, std::memory_order_relaxed);
            if (sequence >= options().maxRequests) return close();
        }
        if (options().rate > 0 && !m_challenging) {
            // Request n is due n / rate seconds after the start, whatever the answers' pace.
            const auto due =
                m_shared.start +
                std::chrono::duration_cast<Clock::duration>(
                    std::chrono::duration<double>(static_cast<double>(sequence) / options().rate));
            if (due > Clock::now()) {
                m_pacer.expires_at(due);
                m_pacer.async_wait([self = shared_from_this(),
                                    sequence](boost::system::error_code) { self->send(sequence); });
                return;
            }
        }
        send(sequence);
    }

    void send(uint64_t sequence) {
        if (Clock::now() >= m_shared.deadline) return close();
        m_out = request(sequence);
        m_sent = Clock::now();
        asio::async_write(m_socket, asio::buffer(m_out),
                          [self = shared_from_this()](boost::system::error_code ec, size_t) {
                              if (ec) return self->failed();
                              self->readAnswer();
                          });
    }

    void readAnswer() {
        if (auto head = parseHead(m_buffer.data(), m_filled)) {
            if (head->status == 0) return failed();
            const size_t total = head->headLength + head->contentLength;
            if (m_filled >= total) return answered(*head, total);
            if (total > m_buffer.size()) m_buffer.resize(total);
        } else if (m_filled == m_buffer.size()) {
            return failed();  // a head larger than the buffer
        }
        m_socket.async_read_some(
            asio::buffer(m_buffer.data() + m_filled, m_buffer.size() - m_filled),
            [self = shared_from_this()](boost::system::error_code ec, size_t n) {
                if (ec) return self->failed();
                self->m_filled += n;
                self->readAnswer();
            });
    }

    void answered(const Head& head, size_t total) {
        const auto now = Clock::now();
        std::memmove(m_buffer.data(), m_buffer.data() + total, m_filled - total);
        m_filled -= total;
        if (m_challenging) {
            m_challenging = false;
            if (head.status != 401 || head.authenticate.empty()) {
                m_stats.errors++;  // the server did not challenge: nothing to answer
                return close();
            }
            takeChallenge(head.authenticate);
        } else {
            if (now >= m_shared.measureFrom) {
                m_stats.statuses[static_cast<size_t>(std::min(head.status, 599))]++;
                m_stats.latencyUs.push_back(static_cast<uint32_t>(
                    std::chrono::duration_cast<std::chrono::microseconds>(now - m_sent).count()));
            }
            if (head.status == 401 && authenticated() && !head.authenticate.empty()) {
                takeChallenge(head.authenticate);
            }
        }
        if (head.close) {
            close();
            m_stats.reconnects++;
            return connect();
        }
        sendNext();
    }

    void takeChallenge(const std::string& challenge) {
        m_stats.challenges++;
        m_digest = std::make_unique<DigestState>(options(), challenge, m_cnonce);
    }

    void failed() {
        if (Clock::now() < m_shared.deadline) m_stats.errors++;
        close();
    }

    void close() {
        boost::system::error_code ignored;
        m_socket.shutdown(tcp::socket::shutdown_both, ignored);
        m_socket.close(ignored);
    }

    asio::io_context& m_io;
    tcp::socket m_socket;
    asio::steady_timer m_pacer;
    Shared& m_shared;
    Stats& m_stats;
    std::string m_cnonce;
    std::unique_ptr<DigestState> m_digest;
    bool m_challenging = false;
    std::string m_out;
    std::vector<char> m_buffer;
    size_t m_filled = 0;
    Clock::time_point m_sent;
};

// ---- command line ----

void usage() {
    std::cerr << "usage: korva-load --port P [--host 127.0.0.1] [--method GET|PUT|POST]\n"
                 "  [--path /x] [--body-file F] [--content-type T] [--user U --password P]\n"
                 "  [--connections 64] [--threads N] [--duration 10] [--warmup 0]\n"
                 "  [--max-requests N] [--grace 5] [--rate R] [--devices N] [--json]\n"
                 "A body file holding {dev} or {ns} is a template: {dev} becomes the request's\n"
                 "sequence number modulo --devices, {ns} the steady clock in ns at sending.\n";
}

bool isLoopback(const std::string& host) {
    boost::system::error_code ec;
    const auto address = asio::ip::make_address(host, ec);
    return !ec && address.is_loopback();
}

std::optional<Options> parseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string flag = argv[i];
        if (flag == "--json") {
            o.json = true;
            continue;
        }
        if (i + 1 >= argc) return std::nullopt;
        const std::string value = argv[++i];
        using Setter = std::function<void(const std::string&)>;
        const std::map<std::string, Setter> setters = {
            {"--host", [&](const std::string& v) { o.host = v; }},
            {"--port",
             [&](const std::string& v) { o.port = static_cast<unsigned short>(std::stoi(v)); }},
            {"--method", [&](const std::string& v) { o.method = v; }},
            {"--path", [&](const std::string& v) { o.path = v; }},
            {"--content-type", [&](const std::string& v) { o.contentType = v; }},
            {"--user", [&](const std::string& v) { o.user = v; }},
            {"--password", [&](const std::string& v) { o.password = v; }},
            {"--connections", [&](const std::string& v) { o.connections = std::stoi(v); }},
            {"--threads", [&](const std::string& v) { o.threads = std::stoi(v); }},
            {"--duration", [&](const std::string& v) { o.duration = std::stod(v); }},
            {"--warmup", [&](const std::string& v) { o.warmup = std::stod(v); }},
            {"--grace", [&](const std::string& v) { o.grace = std::stod(v); }},
            {"--max-requests", [&](const std::string& v) { o.maxRequests = std::stoull(v); }},
            {"--rate", [&](const std::string& v) { o.rate = std::stod(v); }},
            {"--devices", [&](const std::string& v) { o.devices = std::stoull(v); }},
        };
        const auto setter = setters.find(flag);
        if (setter != setters.end()) {
            try {
                setter->second(value);
            } catch (const std::exception&) {
                std::cerr << "korva-load: bad value for " << flag << ": " << value << "\n";
                return std::nullopt;
            }
        } else if (flag == "--body-file") {
            std::ifstream in(value, std::ios::binary);
            if (!in) {
                std::cerr << "korva-load: cannot read " << value << "\n";
                return std::nullopt;
            }
            std::ostringstream text;
            text << in.rdbuf();
            o.body = text.str();
        } else {
            std::cerr << "korva-load: unknown flag " << flag << "\n";
            return std::nullopt;
        }
    }
    if (o.port == 0 || o.connections < 1 || o.connections > 10000 || o.threads < 1 ||
        o.threads > 256 || o.duration <= 0 || o.duration > 3600 || o.warmup < 0 ||
        o.warmup >= o.duration || o.grace < 0 || o.grace > 60 || o.rate < 0 || o.devices < 1) {
        return std::nullopt;
    }
    o.templated =
        o.body.find("{dev}") != std::string::npos || o.body.find("{ns}") != std::string::npos;
    if (!isLoopback(o.host)) {
        std::cerr << "korva-load: only loopback addresses are accepted\n";
        return std::nullopt;
    }
    return o;
}

uint32_t percentile(const std::vector<uint32_t>& sorted, double fraction) {
    if (sorted.empty()) return 0;
    const size_t index = std::min(
        sorted.size() - 1, static_cast<size_t>(fraction * static_cast<double>(sorted.size())));
    return sorted[index];
}

void report(const Options& o, Stats& total, double seconds) {
    std::sort(total.latencyUs.begin(), total.latencyUs.end());
    const auto count = total.latencyUs.size();
    const double rps = seconds > 0 ? static_cast<double>(count) / seconds : 0;
    std::ostringstream statuses;
    bool first = true;
    for (size_t s = 0; s < total.statuses.size(); ++s) {
        if (total.statuses[s] == 0) continue;
        statuses << (first ? "" : ", ") << (o.json ? "\"" : "") << s << (o.json ? "\"" : "") << ": "
                 << total.statuses[s];
        first = false;
    }
    const uint32_t p50 = percentile(total.latencyUs, 0.5), p90 = percentile(total.latencyUs, 0.9),
                   p99 = percentile(total.latencyUs, 0.99),
                   max = count ? total.latencyUs.back() : 0;
    char line[1024];
    if (o.json) {
        std::snprintf(line, sizeof line,
                      "{\"requests\": %zu, \"seconds\": %.3f, \"rps\": %.1f, \"statuses\": {%s}, "
                      "\"errors\": %llu, \"reconnects\": %llu, \"challenges\": %llu, "
                      "\"p50_us\": %u, \"p90_us\": %u, \"p99_us\": %u, \"max_us\": %u, "
                      "\"connections\": %d, \"threads\": %d}",
                      count, seconds, rps, statuses.str().c_str(),
                      static_cast<unsigned long long>(total.errors),
                      static_cast<unsigned long long>(total.reconnects),
                      static_cast<unsigned long long>(total.challenges), p50, p90, p99, max,
                      o.connections, o.threads);
        std::cout << line << std::endl;
        return;
    }
    std::printf("%s %s: %zu requests in %.2f s = %.0f req/s (%d connections, %d threads)\n",
                o.method.c_str(), o.path.c_str(), count, seconds, rps, o.connections, o.threads);
    std::printf("statuses {%s}, errors %llu, reconnects %llu, challenges %llu\n",
                statuses.str().c_str(), static_cast<unsigned long long>(total.errors),
                static_cast<unsigned long long>(total.reconnects),
                static_cast<unsigned long long>(total.challenges));
    std::printf("latency ms: p50 %.3f  p90 %.3f  p99 %.3f  max %.3f\n", p50 / 1000.0, p90 / 1000.0,
                p99 / 1000.0, max / 1000.0);
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = parseOptions(argc, argv);
    if (!parsed) {
        usage();
        return 2;
    }
    Shared shared;
    shared.options = *parsed;
    const Options& o = shared.options;
    const int threads = std::min(o.threads, o.connections);
    std::vector<std::unique_ptr<asio::io_context>> ios;
    std::vector<Stats> stats(static_cast<size_t>(threads));
    for (int t = 0; t < threads; ++t) ios.push_back(std::make_unique<asio::io_context>(1));
    for (auto& s : stats) s.latencyUs.reserve(1 << 16);

    shared.start = Clock::now();
    const auto toDuration = [](double seconds) {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    };
    shared.measureFrom = shared.start + toDuration(o.warmup);
    shared.deadline = shared.start + toDuration(o.duration);
    for (int c = 0; c < o.connections; ++c) {
        const auto t = static_cast<size_t>(c % threads);
        std::make_shared<Connection>(*ios[t], shared, stats[t], c)->start();
    }
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            asio::io_context& io = *ios[static_cast<size_t>(t)];
            // Ends the thread once its connections are done, and abandons connections still
            // waiting for an answer after the grace period.
            const auto limit = shared.deadline + toDuration(o.grace);
            asio::steady_timer check(io);
            std::function<void()> arm = [&] {
                check.expires_after(std::chrono::milliseconds(50));
                check.async_wait([&](boost::system::error_code) {
                    if (stats[static_cast<size_t>(t)].live == 0 || Clock::now() >= limit) {
                        io.stop();
                    } else {
                        arm();
                    }
                });
            };
            arm();
            io.run();
        });
    }
    for (auto& worker : workers) worker.join();
    const double seconds =
        std::chrono::duration<double>(std::min(Clock::now(), shared.deadline) - shared.measureFrom)
            .count();
    Stats total;
    for (auto& s : stats) total.merge(s);
    report(o, total, seconds);
    return 0;
}
