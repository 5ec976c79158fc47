// Signs in. The completion queue is the main loop of GLib, which applications with GTK use.
//
//   API_KEY=... PASSWORD=... glibloop BASE-URL EMAIL
//
// Exit status: 0 signed in, 1 not signed in, 2 wrong usage.
#include <glib.h>

#include <HalvernApi/HalvernApi.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

using namespace HalvernApi;

namespace {

class GlibQueue final : public DispatchQueue {
 public:
  void async(std::function<void()> task) override {
    const auto run = [](gpointer held) {
      (*static_cast<std::function<void()>*>(held))();
      return G_SOURCE_REMOVE;
    };
    const auto destroy = [](gpointer held) { delete static_cast<std::function<void()>*>(held); };
    g_idle_add_full(G_PRIORITY_DEFAULT, run, new std::function<void()>(std::move(task)), destroy);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const char* const apiKey = std::getenv("API_KEY");
  const char* const password = std::getenv("PASSWORD");
  if (argc != 3 || apiKey == nullptr || password == nullptr) return 2;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;  // the library prints answers there

  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  HttpApiService service(argv[1], {.completionQueue = std::make_shared<GlibQueue>()}, apiKey);
  int status = 1;
  service.login(argv[2], password, "example-1", "Example")
      .then([&](const AuthenticationResponse& account) {
        if (!account.isSuccessful()) return;
        std::cerr << "Signed in as " << account.email() << '\n';
        status = 0;
      })
      .trap([](const Error& error) { std::cerr << error << '\n'; })
      .finally([&] { g_main_loop_quit(loop); });
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return status;
}
