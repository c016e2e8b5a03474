#include "bench/discarding_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "bench/measure.h"
#include "report/upload/tus_protocol.h"

namespace vosk::bench {
namespace {

class Connection {
 public:
  explicit Connection(int socket) : socket_(socket), buffer_(kMebibyte) {
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  }

  void Serve() {
    while (ReadHead()) {
      if (head_.starts_with("POST")) {
        Send("HTTP/1.1 201 Created\r\nLocation: /upload\r\nContent-Length: 0\r\n\r\n");
      } else if (head_.starts_with("HEAD")) {
        Send("HTTP/1.1 200 OK\r\nUpload-Offset: 0\r\nContent-Length: 0\r\n\r\n");
      } else {
        if (!report::FindHeaderValue(head_, "Expect").empty()) {
          Send("HTTP/1.1 100 Continue\r\n\r\n");
        }
        const std::int64_t length = Number("Content-Length");
        if (!Discard(length)) return;
        Send(fmt::format("HTTP/1.1 204 No Content\r\nUpload-Offset: {}\r\n\r\n",
                         Number("Upload-Offset") + length));
      }
    }
  }

 private:
  [[nodiscard]] std::int64_t Number(const char* header) const {
    return std::atoll(report::FindHeaderValue(head_, header).c_str());
  }

  void Send(const std::string& text) {
    StopUnless(send(socket_, text.data(), text.size(), 0) >= 0, "send");
  }

  // Reads up to the empty line; everything after it belongs to the body.
  bool ReadHead() {
    head_ = std::move(rest_);
    rest_.clear();
    for (;;) {
      const std::size_t end = head_.find("\r\n\r\n");
      if (end != std::string::npos) {
        rest_ = head_.substr(end + 4);
        head_.resize(end + 2);
        return true;
      }
      const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (count <= 0) return false;
      head_.append(buffer_.data(), static_cast<std::size_t>(count));
    }
  }

  bool Discard(std::int64_t length) {
    const auto held = std::min<std::int64_t>(length, static_cast<std::int64_t>(rest_.size()));
    rest_.erase(0, static_cast<std::size_t>(held));
    for (std::int64_t left = length - held; left > 0;) {
      const auto wanted = std::min<std::int64_t>(left, static_cast<std::int64_t>(buffer_.size()));
      // The bytes are dropped where they are, without a copy.
      const ssize_t count =
          recv(socket_, buffer_.data(), static_cast<std::size_t>(wanted), MSG_TRUNC);
      if (count <= 0) return false;
      left -= count;
    }
    return true;
  }

  int socket_;
  std::vector<char> buffer_;
  std::string head_;
  std::string rest_;
};

[[noreturn]] void ServeForever(int listener) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGPIPE, SIG_IGN);
  for (;;) {
    const int socket = accept(listener, nullptr, nullptr);
    if (socket < 0) std::_Exit(1);
    Connection(socket).Serve();
    close(socket);
  }
}

}  // namespace

DiscardingServer::DiscardingServer() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  const bool listening = bind(listener, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                         listen(listener, 4) == 0 &&
                         getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  StopUnless(listening, "no socket on loopback");
  url_ = fmt::format("http://127.0.0.1:{}/", ntohs(address.sin_port));
  pid_ = fork();
  if (pid_ == 0) ServeForever(listener);
  StopUnless(pid_ > 0, "no process for the discarding server");
  close(listener);
}

DiscardingServer::~DiscardingServer() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

}  // namespace vosk::bench
