// Files of HTTP servers, through libcurl. A request has many ranges if the server answers such requests (RFC 9110,
// "HTTP Semantics", 14: range requests), else requests of one range each run at the same time.
#include "servers/HTTPAnswer.h"
#include "servers/ServerModules.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Quillmoran {

namespace {

using Result = RangeSource::Result;
using Read = RangeSource::Read;

constexpr long connectTimeout = 10;     // seconds
constexpr unsigned defaultTimeout = 30; // seconds without a byte
constexpr unsigned defaultRetries = 3;
constexpr unsigned maxSetting = 3600;
constexpr auto firstPause = std::chrono::milliseconds(200); // before a retry; doubled each time
constexpr int pollInterval = 50;                            // milliseconds
constexpr long maxRedirects = 10;
constexpr std::size_t maxTransfers = 6; // at the same time
// Servers limit the length of a line of the header, usually to 8 KiB.
constexpr std::size_t maxRangeText = 7000;
constexpr std::size_t maxRequestBytes = 8 << 20;
constexpr std::size_t partBytes = 1024; // the description of a part of an answer, at most
constexpr std::size_t maxErrorBytes = 1 << 20;
constexpr std::size_t maxHeaderBytes = 256 << 10; // with all redirections
constexpr std::size_t fewRanges = 100;            // some servers refuse more than 200 in a request

constexpr long partialContent = 206;
constexpr long ok = 200;
constexpr long preconditionFailed = 412;
constexpr long rangeNotSatisfiable = 416;

const char* describe(long status)
{
    switch (status) {
    case 401:
        return " (it asks for a password or a token)";
    case 403:
        return " (access is denied)";
    case 404:
        return " (there is no such file)";
    case 410:
        return " (the file is gone)";
    case 429:
        return " (too many requests)";
    case 500:
        return " (internal error)";
    case 502:
    case 503:
    case 504:
        return " (it is not available now)";
    default:
        return "";
    }
}

// Whether another attempt can succeed.
bool isTemporary(long status)
{
    return status == 408 || status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

bool isTemporary(CURLcode code)
{
    switch (code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_SSL_CONNECT_ERROR:
        return true;
    default:
        return false;
    }
}

// A number in the environment.
unsigned getSetting(const char* name, unsigned otherwise)
{
    const char* const text = std::getenv(name);
    if (!text || *text == '\0')
        return otherwise;
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    return *end == '\0' && number <= maxSetting ? static_cast<unsigned>(number) : otherwise;
}

// Other failures than a lack of memory would be errors of this program.
void requireDone(CURLMcode code)
{
    if (code != CURLM_OK)
        throw std::bad_alloc();
}

// One request and its answer.
struct Transfer
{
    std::vector<const Read*> reads; // empty: the first bytes of the file
    std::string ranges;             // as the header has them
    std::size_t maxBody = 0;
    bool takesWhole = false; // an answer without ranges, if it is not longer

    HTTPAnswer answer;
    CURLcode code = CURLE_OK;
    std::size_t headerBytes = 0;
    bool isWhole = false; // the server sends the whole file
    bool isTooLong = false;
    bool isConnected = false;
    std::exception_ptr exception; // of a callback

    // Both return whether the transfer goes on.
    bool addHeader(std::string_view line)
    {
        headerBytes += line.size();
        isTooLong = headerBytes > maxHeaderBytes;
        if (!isTooLong)
            answer.addHeaderLine(line);
        return !isTooLong;
    }

    bool addBody(const char* data, std::size_t count)
    {
        isWhole = answer.status == ok;
        if (isWhole && !takesWhole)
            return false;
        const std::size_t limit = isWhole || answer.status == partialContent ? maxBody : maxErrorBytes;
        isTooLong = answer.body.size() + count > limit;
        if (!isTooLong)
            answer.body.insert(answer.body.end(), data, data + count);
        return !isTooLong;
    }

    // What libcurl calls. It is C, which exceptions must not pass through.
    static std::size_t takeHeader(char* data, std::size_t, std::size_t count, void* self) noexcept
    {
        auto& transfer = *static_cast<Transfer*>(self);
        return transfer.guarded([&] { return transfer.addHeader({data, count}); }) ? count : 0;
    }

    static std::size_t takeBody(char* data, std::size_t, std::size_t count, void* self) noexcept
    {
        auto& transfer = *static_cast<Transfer*>(self);
        return transfer.guarded([&] { return transfer.addBody(data, count); }) ? count : 0;
    }

private:
    template <class Function>
    bool guarded(const Function& function) noexcept
    {
        try {
            return function();
        } catch (...) {
            exception = std::current_exception();
            return false;
        }
    }
};

struct EasyCleanup
{
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct MultiCleanup
{
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct ListCleanup
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Easy = std::unique_ptr<CURL, EasyCleanup>;
using Multi = std::unique_ptr<CURLM, MultiCleanup>;
using List = std::unique_ptr<curl_slist, ListCleanup>;

// Connections, which stay open between requests. Used by one thread at a time.
struct Session
{
    Multi multi{curl_multi_init()};
    std::vector<Easy> idle; // destroyed first
};

class HTTPSource final : public RangeSource
{
public:
    HTTPSource(const char* url, const Environment& environment) : m_url(url), m_environment(environment)
    {
        static std::once_flag initialized;
        std::call_once(initialized, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        if (const char* const header = std::getenv("VX_HTTP_HEADER"))
            m_header = header;
    }

    Result open(std::int64_t& size, std::vector<unsigned char>& head) override;
    Result read(std::span<const Read> reads) override;
    bool takesManyRanges() const noexcept override { return m_maxRanges > 1; }

private:
    std::unique_ptr<Session> takeSession();
    void giveBack(std::unique_ptr<Session> session);
    // Runs all transfers. False if it was interrupted.
    bool run(std::vector<std::unique_ptr<Transfer>>& transfers);
    void setUp(CURL* handle, Transfer& transfer, const List& headers) const;
    List makeHeaders() const;
    std::vector<std::unique_ptr<Transfer>> divide(const std::vector<const Read*>& reads) const;
    // Whether an answer is of the file that open() found.
    bool isSameFile(const HTTPAnswer& answer) const;
    // Examines an answer; appends what it lacks to `missing`.
    Result examine(const Transfer& transfer, std::vector<const Read*>& missing, bool& isTemporaryFailure);
    // Waits before an attempt; false if it was interrupted.
    bool pause(unsigned attempt) const;
    std::string describeFailure(const Transfer& transfer) const;
    // After a bad answer to a request for this number of ranges.
    void askForFewer(std::size_t numRanges);

    const std::string m_url;
    const Environment m_environment;
    const unsigned m_timeout = getSetting("VX_HTTP_TIMEOUT", defaultTimeout);
    const unsigned m_retries = getSetting("VX_HTTP_RETRIES", defaultRetries);
    std::string m_header; // of the user
    std::int64_t m_size = 0;
    std::string m_entityTag, m_lastModified;
    std::atomic<std::size_t> m_maxRanges = SIZE_MAX; // of a request; written with the mutex

    std::mutex m_mutex; // guards the following
    std::vector<std::unique_ptr<Session>> m_idle;
    pid_t m_process = getpid(); // of the sessions
};

std::unique_ptr<Session> HTTPSource::takeSession()
{
    const std::lock_guard lock(m_mutex);
    if (m_process != getpid()) { // the connections are the parent's
        for (auto& session : m_idle)
            static_cast<void>(session.release());
        m_idle.clear();
        m_process = getpid();
    }
    if (m_idle.empty())
        return std::make_unique<Session>();
    auto session = std::move(m_idle.back());
    m_idle.pop_back();
    return session;
}

void HTTPSource::giveBack(std::unique_ptr<Session> session)
{
    const std::lock_guard lock(m_mutex);
    m_idle.push_back(std::move(session));
}

List HTTPSource::makeHeaders() const
{
    List list;
    const auto add = [&list](const std::string& line) {
        if (curl_slist* const longer = curl_slist_append(list.get(), line.c_str())) {
            static_cast<void>(list.release());
            list.reset(longer);
        }
    };
    if (!m_header.empty())
        add(m_header);
    const bool isWeak = m_entityTag.rfind("W/", 0) == 0;
    if (!m_entityTag.empty() && !isWeak)
        add("If-Match: " + m_entityTag);
    else if (!m_lastModified.empty())
        add("If-Unmodified-Since: " + m_lastModified);
    return list;
}

void HTTPSource::setUp(CURL* handle, Transfer& transfer, const List& headers) const
{
    curl_easy_reset(handle);
    const bool isSecure = strncasecmp(m_url.c_str(), "https:", 6) == 0;
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, isSecure ? "https" : "http,https");
#else
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS, long{CURLPROTO_HTTP | CURLPROTO_HTTPS});
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS,
                     isSecure ? long{CURLPROTO_HTTPS} : long{CURLPROTO_HTTP | CURLPROTO_HTTPS});
#endif
    curl_easy_setopt(handle, CURLOPT_URL, m_url.c_str());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "vxunpack");
    curl_easy_setopt(handle, CURLOPT_NETRC, long{CURL_NETRC_OPTIONAL});
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, maxRedirects);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectTimeout);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(m_timeout));
    curl_easy_setopt(handle, CURLOPT_RANGE, transfer.ranges.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Transfer::takeHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Transfer::takeBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_PRIVATE, &transfer);
}

bool HTTPSource::run(std::vector<std::unique_ptr<Transfer>>& transfers)
{
    const List headers = makeHeaders();
    std::unique_ptr<Session> session = takeSession();
    CURLM* const multi = session->multi.get();
    std::vector<Easy> active;
    const auto finish = [&](CURL* handle) {
        curl_multi_remove_handle(multi, handle);
        long redirects = 0;
        curl_off_t received = 0;
        curl_easy_getinfo(handle, CURLINFO_REDIRECT_COUNT, &redirects);
        curl_easy_getinfo(handle, CURLINFO_SIZE_DOWNLOAD_T, &received);
        curl_off_t connectTime = 0;
        curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connectTime);
        Transfer* transfer = nullptr;
        curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
        transfer->isConnected = connectTime != 0;
        m_environment.count(1 + redirects, received);
        const auto found = std::find_if(active.begin(), active.end(),
                                        [&](const Easy& easy) { return easy.get() == handle; });
        session->idle.push_back(std::move(*found));
        active.erase(found);
    };
    std::size_t next = 0;
    bool isWanted = true;
    while (isWanted && (next < transfers.size() || !active.empty())) {
        for (; next < transfers.size() && active.size() < maxTransfers; ++next) {
            Easy handle;
            if (session->idle.empty()) {
                handle.reset(curl_easy_init());
            } else {
                handle = std::move(session->idle.back());
                session->idle.pop_back();
            }
            if (!handle)
                throw std::bad_alloc();
            setUp(handle.get(), *transfers[next], headers);
            active.push_back(std::move(handle));
            requireDone(curl_multi_add_handle(multi, active.back().get()));
        }
        int numRunning = 0;
        requireDone(curl_multi_perform(multi, &numRunning));
        int left = 0;
        bool isOneDone = false;
        while (const CURLMsg* const message = curl_multi_info_read(multi, &left)) {
            if (message->msg != CURLMSG_DONE)
                continue;
            Transfer* transfer = nullptr;
            curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
            transfer->code = message->data.result;
            if (transfer->exception)
                std::rethrow_exception(transfer->exception);
            finish(message->easy_handle);
            isOneDone = true;
        }
        if (!isOneDone && !active.empty())
            curl_multi_poll(multi, nullptr, 0, pollInterval, nullptr);
        isWanted = !m_environment.isInterrupted();
    }
    while (!active.empty())
        finish(active.back().get());
    giveBack(std::move(session));
    return isWanted;
}

bool HTTPSource::pause(unsigned attempt) const
{
    const auto end = std::chrono::steady_clock::now() + firstPause * (1u << std::min(attempt, 5u));
    while (std::chrono::steady_clock::now() < end) {
        if (m_environment.isInterrupted())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(pollInterval));
    }
    return true;
}

std::string HTTPSource::describeFailure(const Transfer& transfer) const
{
    const long status = transfer.answer.status;
    if (transfer.isWhole && (transfer.isTooLong || !transfer.takesWhole))
        return "its server does not support requests for ranges";
    if (transfer.isTooLong && (status == partialContent || transfer.headerBytes > maxHeaderBytes))
        return "the answer of its server is longer than it should be";
    if (transfer.code == CURLE_OPERATION_TIMEDOUT && !transfer.isConnected)
        return "its server cannot be reached within " + std::to_string(connectTimeout) + " seconds";
    if (transfer.code == CURLE_OPERATION_TIMEDOUT)
        return "its server has not answered for " + std::to_string(m_timeout) + " seconds";
    if (transfer.code != CURLE_OK && !transfer.isTooLong)
        return curl_easy_strerror(transfer.code);
    if (status == partialContent || status == ok)
        return "the answer of its server is malformed or incomplete";
    return "its server answered " + std::to_string(status) + describe(status);
}

Result HTTPSource::open(std::int64_t& size, std::vector<unsigned char>& head)
{
    for (unsigned attempt = 0;; ++attempt) {
        std::vector<std::unique_ptr<Transfer>> transfers;
        Transfer& transfer = *transfers.emplace_back(std::make_unique<Transfer>());
        transfer.ranges = "0-" + std::to_string(head.size() - 1);
        transfer.maxBody = head.size();
        transfer.takesWhole = true;
        if (!run(transfers))
            return {Result::Cancelled, {}};
        const HTTPAnswer& answer = transfer.answer;
        ContentRange range;
        bool isGood = transfer.code == CURLE_OK;
        if (isGood && answer.status == ok) { // a small file
            m_size = static_cast<std::int64_t>(answer.body.size());
        } else if (isGood && answer.status == partialContent) {
            isGood = ContentRange::parse(answer.contentRange, range) && range.first == 0 && range.size >= 0 &&
                     range.end == static_cast<std::int64_t>(answer.body.size());
            m_size = range.size;
        } else {
            isGood = isGood && answer.status == rangeNotSatisfiable &&
                     ContentRange::parse(answer.contentRange, range) && range.size == 0;
            m_size = 0;
            if (isGood)
                transfer.answer.body.clear();
        }
        if (isGood) {
            m_entityTag = answer.entityTag;
            m_lastModified = answer.lastModified;
            size = m_size;
            head = std::move(transfer.answer.body);
            return {};
        }
        const bool mayRetry =
            isTemporary(transfer.code) || (transfer.code == CURLE_OK && isTemporary(transfer.answer.status));
        if (!mayRetry || attempt == m_retries)
            return {Result::Failed, describeFailure(transfer)};
        if (!pause(attempt))
            return {Result::Cancelled, {}};
    }
}

std::vector<std::unique_ptr<Transfer>> HTTPSource::divide(const std::vector<const Read*>& reads) const
{
    std::vector<std::unique_ptr<Transfer>> transfers;
    for (const Read* read : reads) {
        const std::int64_t last = read->offset + static_cast<std::int64_t>(read->into.size()) - 1;
        const std::string text = std::to_string(read->offset) + '-' + std::to_string(last);
        if (transfers.empty() || transfers.back()->reads.size() >= m_maxRanges ||
            transfers.back()->ranges.size() + text.size() >= maxRangeText ||
            transfers.back()->maxBody + read->into.size() > maxRequestBytes)
            transfers.push_back(std::make_unique<Transfer>());
        Transfer& transfer = *transfers.back();
        transfer.ranges += (transfer.ranges.empty() ? "" : ",") + text;
        transfer.maxBody += read->into.size() + partBytes;
        transfer.reads.push_back(read);
    }
    return transfers;
}

void HTTPSource::askForFewer(std::size_t numRanges)
{
    const std::lock_guard lock(m_mutex);
    m_maxRanges = std::min<std::size_t>(m_maxRanges, numRanges > fewRanges ? fewRanges : 1);
}

bool HTTPSource::isSameFile(const HTTPAnswer& answer) const
{
    const auto isWeak = [](const std::string& tag) { return tag.rfind("W/", 0) == 0; };
    if (!m_entityTag.empty() && !isWeak(m_entityTag) && !answer.entityTag.empty())
        return answer.entityTag == m_entityTag;
    return m_lastModified.empty() || answer.lastModified.empty() || answer.lastModified == m_lastModified;
}

Result HTTPSource::examine(const Transfer& transfer, std::vector<const Read*>& missing,
                           bool& isTemporaryFailure)
{
    const HTTPAnswer& answer = transfer.answer;
    const bool hasMany = transfer.reads.size() > 1;
    isTemporaryFailure = true;
    // Servers can ignore what they do not support, or send what is between the ranges.
    if (hasMany && (transfer.isWhole || (transfer.isTooLong && answer.status == partialContent))) {
        askForFewer(transfer.reads.size());
        missing.insert(missing.end(), transfer.reads.begin(), transfer.reads.end());
        return {};
    }
    Result failure = {Result::Failed, describeFailure(transfer)};
    if (transfer.code == CURLE_OK && answer.status == partialContent && !transfer.isTooLong) {
        if (!isSameFile(answer))
            return {Result::Changed, {}};
        HTTPParts parts(transfer.reads, m_size);
        const bool isGood = parts.take(answer);
        if (parts.hasOtherSize())
            return {Result::Changed, {}};
        const std::vector<const Read*> lacking = parts.missing();
        missing.insert(missing.end(), lacking.begin(), lacking.end());
        if (!isGood || !lacking.empty()) {
            if (!hasMany)
                return failure;
            askForFewer(transfer.reads.size());
        }
        return {};
    }
    missing.insert(missing.end(), transfer.reads.begin(), transfer.reads.end());
    if (transfer.code == CURLE_OK &&
        (answer.status == preconditionFailed || answer.status == rangeNotSatisfiable))
        return {Result::Changed, {}};
    isTemporaryFailure =
        isTemporary(transfer.code) || (transfer.code == CURLE_OK && isTemporary(answer.status));
    return failure;
}

Result HTTPSource::read(std::span<const Read> reads)
{
    std::vector<const Read*> wanted;
    for (const Read& read : reads)
        wanted.push_back(&read);
    for (unsigned attempt = 0; !wanted.empty();) {
        auto transfers = divide(wanted);
        if (!run(transfers))
            return {Result::Cancelled, {}};
        std::vector<const Read*> missing;
        Result failure;
        for (const auto& transfer : transfers) {
            bool isTemporaryFailure = false;
            Result result = examine(*transfer, missing, isTemporaryFailure);
            if (result.status == Result::Changed || (result.status == Result::Failed && !isTemporaryFailure))
                return result;
            if (result.status == Result::Failed)
                failure = std::move(result);
        }
        if (failure.status == Result::Failed) {
            // A server that fails now and then is asked as long as it sends anything.
            attempt = missing.size() < wanted.size() ? 0 : attempt;
            if (attempt == m_retries)
                return failure;
            if (!pause(attempt++))
                return {Result::Cancelled, {}};
        }
        std::sort(missing.begin(), missing.end(),
                  [](const Read* a, const Read* b) { return a->offset < b->offset; });
        wanted = std::move(missing);
    }
    return {};
}

} // namespace

} // namespace Quillmoran

Quillmoran::RangeSource* qmMakeHTTPSource(const char* url,
                                          const Quillmoran::RangeSource::Environment& environment)
{
    return new Quillmoran::HTTPSource(url, environment);
}
