#include "app/web/WebAccess.h"

#include <array>
#include <cstdio>
#include <random>

namespace app::web {
namespace {

// Compares in time independent of where the first difference lies.
bool sameSecret(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    return difference == 0;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::string out;
    unsigned bits = 0;
    int count = 0;
    for (char c : text) {
        if (c == '=') break;
        int v = value(c);
        if (v < 0) return std::nullopt;
        bits = (bits << 6) | static_cast<unsigned>(v);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out.push_back(static_cast<char>((bits >> count) & 0xFF));
        }
    }
    return out;
}

// "http://127.0.0.1:8080" names host "127.0.0.1:8080".
std::optional<std::string> originHost(std::string_view origin) {
    auto scheme = origin.find("://");
    if (scheme == std::string_view::npos) return std::nullopt;
    std::string_view rest = origin.substr(scheme + 3);
    return std::string(rest.substr(0, rest.find('/')));
}

}  // namespace

std::string makeAccessToken() {
    std::random_device source;
    std::string token;
    for (int i = 0; i < 8; ++i) {
        std::array<char, 9> hex{};
        std::snprintf(hex.data(), hex.size(), "%08x", static_cast<unsigned>(source()));
        token += hex.data();
    }
    return token;
}

WebAccess::WebAccess(std::string token, std::optional<std::string> password)
    : _token(std::move(token)), _password(std::move(password)) {}

bool WebAccess::isStateChanging(std::string_view method) {
    return method != "GET" && method != "HEAD" && method != "OPTIONS";
}

std::optional<std::string> WebAccess::cookieValue(std::string_view header, std::string_view name) {
    std::size_t start = 0;
    while (start < header.size()) {
        auto end = header.find(';', start);
        if (end == std::string_view::npos) end = header.size();
        std::string_view pair = header.substr(start, end - start);
        while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
        auto equals = pair.find('=');
        if (equals != std::string_view::npos && pair.substr(0, equals) == name)
            return std::string(pair.substr(equals + 1));
        start = end + 1;
    }
    return std::nullopt;
}

bool WebAccess::tokenMatches(const std::optional<std::string>& candidate) const {
    return candidate && sameSecret(*candidate, _token);
}

bool WebAccess::passwordMatches(const std::optional<std::string>& authorization) const {
    if (!_password) return true;
    constexpr std::string_view kBasic = "Basic ";
    if (!authorization || authorization->rfind(kBasic, 0) != 0) return false;
    auto decoded = decodeBase64(std::string_view(*authorization).substr(kBasic.size()));
    if (!decoded) return false;
    // Any user name; the password is what counts.
    auto colon = decoded->find(':');
    if (colon == std::string::npos) return false;
    return sameSecret(std::string_view(*decoded).substr(colon + 1), *_password);
}

AccessDecision WebAccess::decide(const RequestCredentials& request) const {
    if (!passwordMatches(request.authorization)) return AccessDecision::noPassword;
    if (isStateChanging(request.method)) {
        if (!tokenMatches(request.headerToken)) {
            const bool someToken = tokenMatches(request.queryToken) ||
                                   (request.cookieHeader &&
                                    tokenMatches(cookieValue(*request.cookieHeader, kTokenCookie)));
            return someToken ? AccessDecision::forged : AccessDecision::noToken;
        }
        // Browsers send Origin with every cross-site POST; it must name this very server.
        if (request.origin && (!request.host || originHost(*request.origin) != *request.host))
            return AccessDecision::forged;
        return AccessDecision::allowed;
    }
    if (tokenMatches(request.headerToken) || tokenMatches(request.queryToken)) {
        return AccessDecision::allowed;
    }
    if (request.cookieHeader && tokenMatches(cookieValue(*request.cookieHeader, kTokenCookie)))
        return AccessDecision::allowed;
    return AccessDecision::noToken;
}

}  // namespace app::web
