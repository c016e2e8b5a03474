#include "tests/support/scripted_peer.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace vosk::support {
namespace {

constexpr int kPatienceMs = 10'000;

}  // namespace

std::optional<std::string> PeerRequest::Header(const std::string& name) const {
  const std::string start = "\r\n" + name + ": ";
  const std::size_t found = headers.find(start);
  if (found == std::string::npos) return std::nullopt;
  const std::size_t value = found + start.size();
  return headers.substr(value, headers.find("\r\n", value) - value);
}

ScriptedPeer::ScriptedPeer() : client_ended_(eventfd(0, EFD_CLOEXEC)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener_, 8), 0);
  EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
  url_ = fmt::format("http://127.0.0.1:{}/", ntohs(address.sin_port));
}

ScriptedPeer::~ScriptedPeer() {
  GoDown();
  if (client_.valid()) client_.wait();
  close(client_ended_);
}

void ScriptedPeer::Run(std::function<bool()> client) {
  client_ = std::async(std::launch::async, [this, client = std::move(client)] {
    struct Ending {
      int event;
      ~Ending() { eventfd_write(event, 1); }
    } ending{client_ended_};
    return client();
  });
}

bool ScriptedPeer::Result() {
  while (const auto request = Await()) {
    ADD_FAILURE() << "unexpected: " << request->line;
    Drop();
  }
  eventfd_t ended = 0;
  eventfd_read(client_ended_, &ended);
  return client_.get();
}

bool ScriptedPeer::AwaitBytes() {
  for (;;) {
    std::array<pollfd, 3> watched = {
        {{client_ended_, POLLIN, 0}, {listener_, POLLIN, 0}, {connection_, POLLIN, 0}}};
    if (poll(watched.data(), watched.size(), kPatienceMs) == 0) {
      ADD_FAILURE() << "the client neither asks nor ends";
      Drop();
      GoDown();
      return false;
    }
    if (watched[2].revents != 0) return true;
    if (watched[1].revents != 0) {
      Drop();
      connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      received_.clear();
    } else if (watched[0].revents != 0) {
      return false;
    }
  }
}

bool ScriptedPeer::ReadMore() {
  std::array<char, 65'536> buffer{};
  const ssize_t count = recv(connection_, buffer.data(), buffer.size(), 0);
  if (count <= 0) {
    Drop();
    return false;
  }
  received_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

std::optional<PeerRequest> ScriptedPeer::Await(std::size_t most_body) {
  PeerRequest request;
  std::size_t head_end = std::string::npos;
  while ((head_end = received_.find("\r\n\r\n")) == std::string::npos) {
    if (!AwaitBytes()) return std::nullopt;
    ReadMore();
  }
  request.headers = received_.substr(0, head_end + 2);
  request.line = request.headers.substr(0, request.headers.find(" HTTP/"));
  received_.erase(0, head_end + 4);
  if (request.Header("Expect")) Send("HTTP/1.1 100 Continue\r\n\r\n");

  const std::size_t length =
      std::strtoull(request.Header("Content-Length").value_or("0").c_str(), nullptr, 10);
  const std::size_t wanted = std::min(length, most_body);
  while (received_.size() < wanted) {
    if (!AwaitBytes()) return std::nullopt;
    if (!ReadMore()) break;
  }
  request.body = received_.substr(0, wanted);
  received_.erase(0, wanted);
  return request;
}

PeerRequest ScriptedPeer::Expect(const std::string& line, std::size_t most_body) {
  const auto request = Await(most_body);
  EXPECT_EQ(request ? request->line : "the client's end", line);
  return request.value_or(PeerRequest{});
}

void ScriptedPeer::Answer(const std::string& status, const std::vector<std::string>& headers,
                          const std::string& body) {
  std::string answer = fmt::format("HTTP/1.1 {}\r\n", status);
  for (const std::string& header : headers) answer += header + "\r\n";
  if (!status.starts_with("204")) answer += fmt::format("Content-Length: {}\r\n", body.size());
  Send(answer + "\r\n" + body);
}

bool ScriptedPeer::Send(const std::string& bytes) {
  return send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

void ScriptedPeer::Drop() {
  if (connection_ >= 0) close(connection_);
  connection_ = -1;
  received_.clear();
}

void ScriptedPeer::GoDown() {
  Drop();
  if (listener_ >= 0) close(listener_);
  listener_ = -1;
}

UnknownTlsServer::UnknownTlsServer() {
  EXPECT_EQ(std::system("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                        "-days 2 -subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 "
                        "-keyout key.pem -out cert.pem 2>/dev/null"),
            0);
  server_ = popen(
      "exec timeout 20 openssl s_server -www -naccept 1 -accept 127.0.0.1:0 -key key.pem "
      "-cert cert.pem 2>&1",
      "r");
  std::array<char, 200> line{};
  while (std::fgets(line.data(), line.size(), server_) != nullptr) {
    if (std::sscanf(line.data(), "ACCEPT 127.0.0.1:%d", &port_) == 1) return;
  }
  ADD_FAILURE() << "no TLS server";
}

UnknownTlsServer::~UnknownTlsServer() {
  pclose(server_);
}

std::string UnknownTlsServer::Url() const {
  return fmt::format("https://127.0.0.1:{}/", port_);
}

}  // namespace vosk::support
