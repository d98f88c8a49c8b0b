// HTTP POST through WinHTTP, the system's own client.
#include "platform/http.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>

namespace platform {

namespace {

constexpr size_t kMaxBody = 4096;

std::wstring Wide(const std::string& s) {
    if (s.empty()) return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), &w[0], n);
    return w;
}

std::string Reason(DWORD code) {
    switch (code) {
        case ERROR_WINHTTP_CANNOT_CONNECT: return "could not connect to the server";
        case ERROR_WINHTTP_TIMEOUT: return "the server did not answer in time";
        case ERROR_WINHTTP_NAME_NOT_RESOLVED: return "the server's name could not be resolved";
        case ERROR_WINHTTP_UNRECOGNIZED_SCHEME:
        case ERROR_WINHTTP_INVALID_URL: return "the address is not a web address (http:// or https://)";
        case ERROR_WINHTTP_CONNECTION_ERROR: return "the connection to the server was reset";
        case ERROR_WINHTTP_SECURE_FAILURE: return "the server's certificate was refused";
        default: break;
    }
    char text[256] = {0};
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                             GetModuleHandleA("winhttp.dll"), code, 0, text, sizeof text, nullptr);
    std::string out = n ? std::string(text, n) : std::string();
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == ' ' || out.back() == '.'))
        out.pop_back();
    return out.empty() ? "WinHTTP error " + std::to_string(code) : out + " (WinHTTP error " + std::to_string(code) + ")";
}

// What WinHTTP's callback thread hands to the thread that waits for the
// exchange. WinHTTP may still call back after WinHttpCloseHandle returns, so
// this outlives both: it is freed by whichever lets go last, the waiting
// thread or the callback announcing that the request handle is gone. The read
// buffer lives here for the same reason.
struct Exchange {
    HANDLE signal = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::mutex lock;
    DWORD completed = 0;  // the completion last reported
    DWORD error = 0;      // its error, for WINHTTP_CALLBACK_STATUS_REQUEST_ERROR
    DWORD bytes = 0;      // bytes read, for WINHTTP_CALLBACK_STATUS_READ_COMPLETE
    char buffer[1024];
    std::atomic<int> holders{2};

    void Release() {
        if (--holders == 0) {
            if (signal) CloseHandle(signal);
            delete this;
        }
    }
    void Expect() {
        std::lock_guard<std::mutex> hold(lock);
        completed = 0;
        error = 0;
    }
};

void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID info, DWORD length) {
    Exchange* x = reinterpret_cast<Exchange*>(context);
    if (!x) return;
    switch (status) {
        case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
        case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR: {
            {
                std::lock_guard<std::mutex> hold(x->lock);
                x->completed = status;
                x->bytes = length;
                if (status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR && info)
                    x->error = static_cast<WINHTTP_ASYNC_RESULT*>(info)->dwError;
            }
            SetEvent(x->signal);
            break;
        }
        case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
            x->Release();
            break;
        default:
            break;
    }
}

// Waits for the completion `want` of the call just made. The wait looks at
// the cancel flag ten times a second, so closing the program never waits for
// a slow server.
bool Await(Exchange* x, DWORD want, ULONGLONG deadline, const std::atomic<bool>* cancel, std::string* error) {
    for (;;) {
        {
            std::lock_guard<std::mutex> hold(x->lock);
            if (x->completed == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) {
                *error = x->error == ERROR_WINHTTP_OPERATION_CANCELLED ? "cancelled" : Reason(x->error);
                return false;
            }
            if (x->completed == want) return true;
        }
        if (cancel && cancel->load()) {
            *error = "cancelled";
            return false;
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) {
            *error = Reason(ERROR_WINHTTP_TIMEOUT);
            return false;
        }
        WaitForSingleObject(x->signal, static_cast<DWORD>(std::min<ULONGLONG>(100, deadline - now)));
    }
}

struct Handle {
    HINTERNET h = nullptr;
    ~Handle() {
        if (h) WinHttpCloseHandle(h);
    }
};

// Runs the exchange on an open request whose callback reports to `x`.
HttpReply PostOn(HINTERNET request, Exchange* x, const std::wstring& headers, const std::string& body,
                    ULONGLONG deadline, const std::atomic<bool>* cancel) {
    HttpReply reply;
    x->Expect();
    if (!WinHttpSendRequest(request, headers.c_str(), static_cast<DWORD>(-1L), const_cast<char*>(body.data()),
                            static_cast<DWORD>(body.size()), static_cast<DWORD>(body.size()),
                            reinterpret_cast<DWORD_PTR>(x))) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    if (!Await(x, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, deadline, cancel, &reply.error)) return reply;
    x->Expect();
    if (!WinHttpReceiveResponse(request, nullptr)) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    if (!Await(x, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE, deadline, cancel, &reply.error)) return reply;
    DWORD status = 0, size = sizeof status;
    if (!WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    reply.answered = true;
    reply.status = static_cast<int>(status);
    // The body is a courtesy (the first line goes into a failure message):
    // a body cut short leaves the answer as it is.
    std::string ignored;
    while (reply.body.size() < kMaxBody) {
        x->Expect();
        if (!WinHttpReadData(request, x->buffer, sizeof x->buffer, nullptr)) break;
        if (!Await(x, WINHTTP_CALLBACK_STATUS_READ_COMPLETE, deadline, cancel, &ignored)) break;
        DWORD read;
        {
            std::lock_guard<std::mutex> hold(x->lock);
            read = x->bytes;
        }
        if (read == 0) break;
        reply.body.append(x->buffer, std::min<size_t>(read, kMaxBody - reply.body.size()));
    }
    return reply;
}

}  // namespace

HttpReply HttpPost(const std::string& url, const std::string& body, const char* contentType, int timeoutMs,
                   const std::atomic<bool>* cancel) {
    HttpReply reply;
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(std::max(timeoutMs, 1));
    std::wstring wurl = Wide(url);
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof parts;
    wchar_t host[256] = {0}, path[2048] = {0};
    parts.lpszHostName = host;
    parts.dwHostNameLength = 256;
    parts.lpszUrlPath = path;
    parts.dwUrlPathLength = 2048;
    wchar_t extra[2048] = {0};
    parts.lpszExtraInfo = extra;
    parts.dwExtraInfoLength = 2048;
    if (!WinHttpCrackUrl(wurl.c_str(), 0, 0, &parts) ||
        (parts.nScheme != INTERNET_SCHEME_HTTP && parts.nScheme != INTERNET_SCHEME_HTTPS)) {
        reply.error = "the address is not a web address (http:// or https://)";
        return reply;
    }
    // Asynchronous, because only an asynchronous request can be abandoned
    // (by closing its handle) while the server keeps us waiting.
    Handle session, connection;
    session.h = WinHttpOpen(L"Ardentium", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                            WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC);
    if (!session.h) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    WinHttpSetTimeouts(session.h, timeoutMs, timeoutMs, timeoutMs, timeoutMs);
    connection.h = WinHttpConnect(session.h, host, parts.nPort, 0);
    std::wstring target = std::wstring(path) + extra;
    if (target.empty()) target = L"/";
    HINTERNET request = nullptr;
    if (connection.h)
        request = WinHttpOpenRequest(connection.h, L"POST", target.c_str(), nullptr, WINHTTP_NO_REFERER,
                                     WINHTTP_DEFAULT_ACCEPT_TYPES,
                                     parts.nScheme == INTERNET_SCHEME_HTTPS ? WINHTTP_FLAG_SECURE : 0);
    if (!request) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    Exchange* x = new Exchange();
    DWORD_PTR context = reinterpret_cast<DWORD_PTR>(x);
    if (!x->signal || !WinHttpSetOption(request, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context) ||
        WinHttpSetStatusCallback(request, OnStatus,
                                 WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES, 0) ==
            WINHTTP_INVALID_STATUS_CALLBACK) {
        reply.error = Reason(GetLastError());
        WinHttpCloseHandle(request);
        x->Release();
        x->Release();  // no callback will come for it
        return reply;
    }
    const std::wstring headers = L"Content-Type: " + Wide(contentType) + L"\r\n";
    reply = PostOn(request, x, headers, body, deadline, cancel);
    WinHttpCloseHandle(request);  // also abandons whatever is still under way
    x->Release();
    return reply;
}

}  // namespace platform
