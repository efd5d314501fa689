#pragma once
// libcurl, loaded on first use instead of at start-up: it brings some thirty
// libraries (TLS, Kerberos, LDAP, ...) that a recorder which never fetches a
// web page would otherwise load, relocate and keep mapped in every process.
//
// Thread contract: get() may be called from any thread; the first call loads
// the library and runs curl's global initialisation exactly once. The loaded
// library stays for the life of the process.
#include <curl/curl.h>

#include <string>

namespace quillon {

class CurlLibrary {
public:
    // The library, or null when it cannot be loaded (then `loadError()` says why).
    static const CurlLibrary* get();
    static std::string loadError();

    CURL* (*easyInit)() = nullptr;
    CURLcode (*easySetopt)(CURL*, CURLoption, ...) = nullptr;
    CURLcode (*easyPerform)(CURL*) = nullptr;
    void (*easyCleanup)(CURL*) = nullptr;
    const char* (*easyStrerror)(CURLcode) = nullptr;
    CURLcode (*easyGetinfo)(CURL*, CURLINFO, ...) = nullptr;
    curl_slist* (*slistAppend)(curl_slist*, const char*) = nullptr;
    void (*slistFreeAll)(curl_slist*) = nullptr;

private:
    struct State;
    CurlLibrary() = default;
    static State& state();
};

}  // namespace quillon
