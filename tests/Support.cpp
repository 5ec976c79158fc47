#include "Support.hpp"

#include <dlfcn.h>
#include <netdb.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace HalvernApi::Tests {

ScriptedServer::ScriptedServer(std::vector<Answer> answers, std::shared_ptr<ssl_ctx_st> tls, Answer greeting)
    : scheme_(tls ? "https://" : "http://"), server_(0, std::move(tls)) {
  const auto handler = [this, answers = std::move(answers)](Testing::SeenRequest request, const std::string& raw) {
    const std::lock_guard lock(mutex_);
    requests_.push_back({std::move(request), raw});
    changed_.notify_all();
    return answers[std::min(requests_.size(), answers.size()) - 1];
  };
  server_.start(handler, std::move(greeting));
}

bool ScriptedServer::awaitRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, 10s, [&] { return requests_.size() >= count; });
}

std::vector<Received> ScriptedServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

Listener::Listener(bool full, const char* address, int port) {
  acceptor.open(boost::asio::ip::tcp::v4());
  acceptor.bind({boost::asio::ip::make_address(address), static_cast<in_port_t>(port)});
  acceptor.listen(full ? 0 : 8);
  if (full) peer.connect(acceptor.local_endpoint());
}

bool Listener::receives() {
  boost::system::error_code error;
  acceptor.non_blocking(true);
  if (!peer.is_open()) acceptor.accept(peer, error);
  return peer.is_open() && peer.available() > 0;
}

StallingServer::StallingServer(Stage stage, std::size_t calls)
    : stage_(stage),
      server_([&] {
        const Answer whole = json("{\"text\":\"whole\"}");
        const std::string part = stage == Stage::receiving ? whole[0].bytes.substr(0, whole[0].bytes.size() - 8) : "";
        std::vector<Answer> answers(calls, {{Step::send, part}, {Step::hold}});
        answers.push_back(whole);
        return answers;
      }()),
      url_(stage == Stage::lookingUp    ? "http://blocked.example"
           : stage == Stage::connecting ? full_.url()
           : stage == Stage::sending    ? deaf_.url()
                                        : server_.url()) {
  nameIsBlocked = true;
}

StallingServer::~StallingServer() {
  nameIsBlocked = false;
  nameIsBlocked.notify_all();
  (void)eventually([] { return lookupsUnderWay == 0; });
}

bool StallingServer::awaitCalls(std::size_t calls) {
  if (stage_ == Stage::lookingUp) return eventually([] { return lookupsUnderWay > 0; });
  if (stage_ == Stage::sending) return eventually([this] { return deaf_.receives(); });
  return stage_ < Stage::waiting || server_.awaitRequests(calls);
}

Identity::Identity(const Terms& terms) : channels(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
  const std::shared_ptr<EVP_PKEY> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const std::shared_ptr<X509> certificate(X509_new(), &X509_free);
  X509* const x509 = certificate.get();
  X509_set_version(x509, X509_VERSION_3);
  X509_time_adj_ex(X509_getm_notBefore(x509), terms.firstDay, 0, nullptr);
  X509_time_adj_ex(X509_getm_notAfter(x509), terms.lastDay, 0, nullptr);
  X509_NAME* const name = X509_get_subject_name(x509);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("server"), -1, -1, 0);
  X509_set_issuer_name(x509, name);
  X509_set_pubkey(x509, key.get());
  const std::shared_ptr<X509_EXTENSION> address(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, ("IP:" + terms.address).c_str()),
      &X509_EXTENSION_free);
  X509_add_ext(x509, address.get(), -1);
  X509_sign(x509, key.get(), EVP_sha256());
  SSL_CTX_use_certificate(channels.get(), x509);
  SSL_CTX_use_PrivateKey(channels.get(), key.get());
  SSL_CTX_set_security_level(channels.get(), 0);  // allows protocols older than TLS 1.2
  SSL_CTX_set_max_proto_version(channels.get(), terms.newestProtocol);
  if (::mkdtemp(directory.data()) == nullptr) throw std::runtime_error("no temporary directory");
  const std::shared_ptr<std::FILE> pem(std::fopen(file().c_str(), "w"), &std::fclose);
  PEM_write_X509(pem.get(), x509);
}

std::string Identity::pin() const {
  unsigned char* der = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(SSL_CTX_get0_certificate(channels.get())), &der);
  std::array<unsigned char, 32> hash{};
  EVP_Digest(der, static_cast<std::size_t>(size), hash.data(), nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(der);
  std::array<unsigned char, 45> text{};
  EVP_EncodeBlock(text.data(), hash.data(), hash.size());
  return reinterpret_cast<const char*>(text.data());
}

}  // namespace HalvernApi::Tests

// Replaces the function of the C library, also for libcurl.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** found) {
  using namespace HalvernApi::Tests;
  static auto* const original = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  const std::string_view name = node != nullptr ? node : "127.0.0.1";
  if (name.starts_with("127.")) return original(node, service, hints, found);
  if (name == "two.example") {
    ++lookups;
    if (twoIsGone) return EAI_NONAME;
    const int failed = original("127.0.0.2", service, hints, found);
    return failed != 0 ? failed : original("127.0.0.1", service, hints, &(*found)->ai_next);
  }
  ++lookupsUnderWay;
  if (name == "blocked.example") nameIsBlocked.wait(true);
  --lookupsUnderWay;
  return EAI_NONAME;
}

// ThreadSanitizer: allows threads in the child of a fork. The session needs one even to fail there.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

// LeakSanitizer: skips the child of a fork. The child has the memory of all threads, but only one thread that can refer
// to it.
static const pid_t startedAs = ::getpid();
extern "C" int __lsan_is_turned_off() { return ::getpid() != startedAs; }
