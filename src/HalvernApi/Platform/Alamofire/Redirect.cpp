#include "HalvernApi/Platform/Alamofire/Redirect.hpp"

#include "HalvernApi/Platform/Alamofire/URL.hpp"

namespace HalvernApi::Alamofire {

std::optional<URLRequest> redirect(const URLRequest& request, int status, const std::string& target) {
  bool becomesGet = false;
  switch (status) {
    case 301:
    case 302: becomesGet = request.method == HTTPMethod::post; break;
    case 303: becomesGet = request.method != HTTPMethod::head; break;
    case 307:
    case 308: break;
    default: return std::nullopt;
  }
  if (!sameOrigin(request.url, target)) return std::nullopt;
  URLRequest next = request;
  next.url = target;
  if (becomesGet) {
    next.method = HTTPMethod::get;
    next.body.reset();
  }
  return next;
}

}  // namespace HalvernApi::Alamofire
