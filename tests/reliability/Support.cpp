#include "Support.hpp"

#include <dlfcn.h>
#include <netdb.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace HalvernApi::Tests {

namespace {

std::vector<Answer> stuck(Stage stage, std::size_t calls) {
  const Answer whole = json("{\"text\":\"whole\"}");
  std::vector<Answer> answers(calls, {{Step::hold}});
  const std::string part = stage == Stage::receiving ? whole[0].bytes.substr(0, whole[0].bytes.size() - 8) : "";
  for (Answer& answer : answers) answer.insert(answer.begin(), {Step::send, part});
  answers.push_back(whole);
  return answers;
}

}  // namespace

FullListener::FullListener(const char* address, int port) {
  sockaddr_in name{AF_INET, htons(static_cast<in_port_t>(port)), {::inet_addr(address)}, {}};
  socklen_t size = sizeof name;
  auto* const generic = reinterpret_cast<sockaddr*>(&name);
  if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 0) != 0 ||
      ::getsockname(listener_, generic, &size) != 0 || ::connect(filler_, generic, size) != 0)
    throw std::runtime_error("no port of loopback");
  port_ = ntohs(name.sin_port);
}

Trap::Trap(Stage stage, std::size_t calls)
    : stage_(stage),
      server_(stuck(stage, calls)),
      url_(stage == Stage::lookingUp    ? "http://blocked.example"
           : stage == Stage::connecting ? "http://127.0.0.1:" + std::to_string(full_.port())
                                        : server_.url()) {
  nameIsBlocked = true;
}

Trap::~Trap() {
  nameIsBlocked = false;
  nameIsBlocked.notify_all();
}

bool Trap::holds(std::size_t calls) {
  if (stage_ == Stage::lookingUp) return eventually([] { return lookupsUnderWay > 0; });
  return stage_ == Stage::connecting || server_.awaitRequests(calls);
}

struct Authority::Identity {
  std::shared_ptr<EVP_PKEY> key{EVP_EC_gen("P-256"), &EVP_PKEY_free};
  std::shared_ptr<X509> certificate{X509_new(), &X509_free};
};

Authority::Identity Authority::issue(const Certificate& wanted, const Identity* issuer) {
  static std::atomic<int> count = 0;
  const std::string name = "Certificate " + std::to_string(++count);
  const Identity made;
  const Identity& signer = issuer != nullptr ? *issuer : made;
  X509* const x509 = made.certificate.get();
  X509_set_version(x509, X509_VERSION_3);
  X509_time_adj_ex(X509_getm_notBefore(x509), wanted.firstDay, 0, nullptr);
  X509_time_adj_ex(X509_getm_notAfter(x509), wanted.lastDay, 0, nullptr);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  X509_set_issuer_name(x509, X509_get_subject_name(signer.certificate.get()));
  X509_set_pubkey(x509, made.key.get());
  const auto extend = [x509](int kind, const std::string& value) {
    const std::shared_ptr<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()),
                                                    &X509_EXTENSION_free);
    X509_add_ext(x509, extension.get(), -1);
  };
  extend(NID_basic_constraints, issuer == nullptr ? "critical,CA:TRUE" : "CA:FALSE");
  extend(NID_subject_alt_name, "IP:" + wanted.address);
  X509_sign(x509, signer.key.get(), EVP_sha256());
  return made;
}

Authority::Authority() : own_(new Identity(issue({}, nullptr))) {
  if (::mkdtemp(directory.data()) == nullptr) throw std::runtime_error("no temporary directory");
  const std::shared_ptr<std::FILE> pem(std::fopen(file().c_str(), "w"), &std::fclose);
  PEM_write_X509(pem.get(), own_->certificate.get());
}

std::shared_ptr<SSL_CTX> Authority::channels(const Certificate& certificate) const {
  const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  const Identity own = issue(certificate, own_.get());
  SSL_CTX_use_certificate(context.get(), own.certificate.get());
  SSL_CTX_use_PrivateKey(context.get(), own.key.get());
  SSL_CTX_set_security_level(context.get(), 0);  // lets old protocols be spoken at all
  SSL_CTX_set_max_proto_version(context.get(), certificate.newestProtocol);
  return context;
}

}  // namespace HalvernApi::Tests

// Takes the place of the C library's for libcurl, too.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** found) {
  using namespace HalvernApi::Tests;
  static auto* const original = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  in_addr numeric{};
  if (node == nullptr || ::inet_pton(AF_INET, node, &numeric) == 1) return original(node, service, hints, found);
  const std::string_view name = node;
  if (name == "two.example") {
    const int failed = original("127.0.0.2", service, hints, found);
    return failed != 0 ? failed : original("127.0.0.1", service, hints, &(*found)->ai_next);
  }
  ++lookupsUnderWay;
  if (name == "blocked.example") nameIsBlocked.wait(true);
  --lookupsUnderWay;
  return EAI_NONAME;
}

// For ThreadSanitizer: the session needs a thread even to fail in the child of a fork.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

// For LeakSanitizer: the child of a fork has the memory of all threads, but only one of them.
static const pid_t startedAs = ::getpid();
extern "C" int __lsan_is_turned_off() { return ::getpid() != startedAs; }
