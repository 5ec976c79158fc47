#include "HalvernApi/Platform/Alamofire/Sockets.hpp"

#include <algorithm>
#include <array>

#include "HalvernApi/Platform/Foundation/Posix.hpp"

namespace HalvernApi::Alamofire {
namespace {

// Returns the address, as text, and the port of one end of a connection; empty and 0 if `name` fails.
std::pair<std::string, int> endOf(curl_socket_t handle, decltype(::getsockname)& name) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (name(handle, generic, &size) != 0) return {};
  auto* const six = reinterpret_cast<sockaddr_in6*>(&address);
  auto* const four = reinterpret_cast<sockaddr_in*>(&address);
  const bool isSix = address.ss_family == AF_INET6;
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(address.ss_family, isSix ? static_cast<void*>(&six->sin6_addr) : &four->sin_addr, text.data(), text.size());
  return {text.data(), ntohs(isSix ? six->sin6_port : four->sin_port)};
}

bool hasSomethingToRead(curl_socket_t handle) {
  pollfd entry{handle, POLLIN, 0};
  return poll(&entry, 1, 0) > 0;
}

// Closes the connection and discards received data, so that libcurl does not use this data as an answer.
void shutDownAndEmpty(curl_socket_t handle) {
  ::shutdown(handle, SHUT_RDWR);
  std::array<char, 16384> rest;
  while (::recv(handle, rest.data(), rest.size(), MSG_DONTWAIT) > 0) {
  }
}

}  // namespace

curl_socket_t Sockets::open(const curl_sockaddr& address) {
  const curl_socket_t handle =
      aboveStandardStreams(::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol));
  if (handle == CURL_SOCKET_BAD) return handle;
  if (SOCK_CLOEXEC == 0) closeOnExec(handle);
  try {
    sockets_.push_back(std::make_shared<Socket>(Socket{handle}));
    return handle;
  } catch (const std::bad_alloc&) {
    closesocket(handle);
    throw;
  }
}

void Sockets::close(curl_socket_t handle) {
  const auto closed =
      std::find_if(sockets_.begin(), sockets_.end(), [handle](const auto& socket) { return socket->handle == handle; });
  if (closed != sockets_.end()) {
    (*closed)->handle = CURL_SOCKET_BAD;  // a transfer may still have a pointer to the socket
    sockets_.erase(closed);
  }
  closesocket(handle);
}

std::shared_ptr<Sockets::Socket> Sockets::use(const char* peer, int peerPort, int localPort) {
  const auto hasTheseEnds = [&](const auto& socket) {
    return socket->localPort == localPort && socket->peerPort == peerPort && socket->peer == peer;
  };
  auto found = std::find_if(sockets_.begin(), sockets_.end(), hasTheseEnds);
  if (found != sockets_.end()) {
    if ((*found)->retired || (!(*found)->inUse && hasSomethingToRead((*found)->handle))) {
      shutDownAndEmpty((*found)->handle);
      return nullptr;
    }
  } else {
    found = std::find_if(sockets_.begin(), sockets_.end(), [&](const auto& socket) {
      return socket->localPort == 0 && endOf(socket->handle, ::getsockname).second == localPort &&
             endOf(socket->handle, ::getpeername) == std::pair<std::string, int>(peer, peerPort);
    });
    if (found == sockets_.end()) return std::make_shared<Socket>(Socket{CURL_SOCKET_BAD});  // not one of `sockets_`
    (*found)->peer = peer;
    (*found)->peerPort = peerPort;
    (*found)->localPort = localPort;
  }
  (*found)->inUse = true;
  return *found;
}

void Sockets::release(const std::shared_ptr<Socket>& socket) {
  if (!socket) return;
  socket->inUse = false;
  if (socket->retired) shutDownAndEmpty(socket->handle);
}

void Sockets::retire() {
  for (const auto& socket : sockets_) {
    socket->retired = true;
    // A socket without a local port is still connecting, for a request that has already begun.
    if (!socket->inUse && socket->localPort != 0) shutDownAndEmpty(socket->handle);
  }
}

}  // namespace HalvernApi::Alamofire
