// Signs in. The completion queue is the main loop of Qt.
//
//   API_KEY=... PASSWORD=... qtloop BASE-URL EMAIL
//
// Exit status: 0 signed in, 1 not signed in, 2 wrong usage.
#include <HalvernApi/HalvernApi.hpp>
#include <QCoreApplication>
#include <cstdio>
#include <iostream>

using namespace HalvernApi;

namespace {

class QtQueue final : public DispatchQueue {
 public:
  void async(std::function<void()> task) override {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task), Qt::QueuedConnection);
  }
};

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  const char* const apiKey = std::getenv("API_KEY");
  const char* const password = std::getenv("PASSWORD");
  if (argc != 3 || apiKey == nullptr || password == nullptr) return 2;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;  // the library prints answers there

  HttpApiService service(argv[1], {.completionQueue = std::make_shared<QtQueue>()}, apiKey);
  int status = 1;
  service.login(argv[2], password, "example-1", "Example")
      .then([&](const AuthenticationResponse& account) {
        if (!account.isSuccessful()) return;
        std::cerr << "Signed in as " << account.email() << '\n';
        status = 0;
      })
      .trap([](const Error& error) { std::cerr << error << '\n'; })
      .finally([&] { QCoreApplication::exit(status); });
  return QCoreApplication::exec();
}
