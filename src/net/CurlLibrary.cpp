#include "net/CurlLibrary.h"

#include <dlfcn.h>

#include <mutex>

namespace quillon {

struct CurlLibrary::State {
    CurlLibrary functions;
    bool loaded = false;
    std::string error;
};

namespace {

template <typename Function>
bool resolve(void* handle, const char* name, Function& out, std::string& error) {
    out = reinterpret_cast<Function>(::dlsym(handle, name));
    if (!out) error = std::string("libcurl lacks ") + name;
    return out != nullptr;
}

}  // namespace

CurlLibrary::State& CurlLibrary::state() {
    static State state;
    static std::once_flag once;
    std::call_once(once, [] {
        // The soname of every libcurl since 7.16; the handle is kept for ever.
        void* handle = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            const char* why = ::dlerror();
            state.error = why ? why : "libcurl.so.4 cannot be loaded";
            return;
        }
        CurlLibrary& f = state.functions;
        CURLcode (*globalInit)(long) = nullptr;
        state.loaded = resolve(handle, "curl_global_init", globalInit, state.error) &&
                       resolve(handle, "curl_easy_init", f.easyInit, state.error) &&
                       resolve(handle, "curl_easy_setopt", f.easySetopt, state.error) &&
                       resolve(handle, "curl_easy_perform", f.easyPerform, state.error) &&
                       resolve(handle, "curl_easy_cleanup", f.easyCleanup, state.error) &&
                       resolve(handle, "curl_easy_strerror", f.easyStrerror, state.error) &&
                       resolve(handle, "curl_easy_getinfo", f.easyGetinfo, state.error) &&
                       resolve(handle, "curl_slist_append", f.slistAppend, state.error) &&
                       resolve(handle, "curl_slist_free_all", f.slistFreeAll, state.error);
        if (state.loaded) globalInit(CURL_GLOBAL_DEFAULT);
    });
    return state;
}

const CurlLibrary* CurlLibrary::get() {
    State& s = state();
    return s.loaded ? &s.functions : nullptr;
}

std::string CurlLibrary::loadError() { return state().error; }

}  // namespace quillon
