// HTTP POST through WinHTTP, the system's own client.
#include "platform/http.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
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

struct Handle {
    HINTERNET h = nullptr;
    ~Handle() {
        if (h) WinHttpCloseHandle(h);
    }
};

}  // namespace

HttpReply HttpPost(const std::string& url, const std::string& body, const char* contentType, int timeoutMs,
                   const std::atomic<bool>* /*cancel: WinHTTP's blocking calls end by their time-out only*/) {
    HttpReply reply;
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
    Handle session, connection, request;
    session.h = WinHttpOpen(L"Ardentium", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                            WINHTTP_NO_PROXY_BYPASS, 0);
    if (!session.h) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    WinHttpSetTimeouts(session.h, timeoutMs, timeoutMs, timeoutMs, timeoutMs);
    connection.h = WinHttpConnect(session.h, host, parts.nPort, 0);
    std::wstring target = std::wstring(path) + extra;
    if (target.empty()) target = L"/";
    if (connection.h)
        request.h = WinHttpOpenRequest(connection.h, L"POST", target.c_str(), nullptr, WINHTTP_NO_REFERER,
                                       WINHTTP_DEFAULT_ACCEPT_TYPES,
                                       parts.nScheme == INTERNET_SCHEME_HTTPS ? WINHTTP_FLAG_SECURE : 0);
    const std::wstring headers = L"Content-Type: " + Wide(contentType) + L"\r\n";
    if (!request.h ||
        !WinHttpSendRequest(request.h, headers.c_str(), static_cast<DWORD>(-1L), const_cast<char*>(body.data()),
                            static_cast<DWORD>(body.size()), static_cast<DWORD>(body.size()), 0) ||
        !WinHttpReceiveResponse(request.h, nullptr)) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    DWORD status = 0, size = sizeof status;
    if (!WinHttpQueryHeaders(request.h, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
        reply.error = Reason(GetLastError());
        return reply;
    }
    reply.answered = true;
    reply.status = static_cast<int>(status);
    char buffer[1024];
    DWORD read = 0;
    while (reply.body.size() < kMaxBody && WinHttpReadData(request.h, buffer, sizeof buffer, &read) && read > 0)
        reply.body.append(buffer, std::min<size_t>(read, kMaxBody - reply.body.size()));
    return reply;
}

}  // namespace platform
