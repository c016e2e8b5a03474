// A server on loopback that sends what the test wants, well-behaved or not. The test awaits the
// next request, looks at it and answers, while the client runs in a thread of its own.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace vosk::support {

struct PeerRequest {
  std::string line;     // "PATCH /files/1"
  std::string headers;  // raw, with the line above them
  std::string body;

  // Returns a header's value, or nothing.
  [[nodiscard]] std::optional<std::string> Header(const std::string& name) const;
};

class ScriptedPeer {
 public:
  ScriptedPeer();
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  // "http://127.0.0.1:1234/"
  [[nodiscard]] const std::string& Url() const { return url_; }

  // Runs the client. Its end, or that of an earlier one, makes Await return nothing.
  void Run(std::function<bool()> client);
  // Waits for the client's end and returns its result, or throws what the client threw. Every
  // request that still comes is turned away and fails the test.
  [[nodiscard]] bool Result();

  // Returns the next request with its body, or with its first `most_body` bytes only; the rest
  // stays unread. Returns nothing if the client has ended. Fails the test after ten seconds.
  [[nodiscard]] std::optional<PeerRequest> Await(std::size_t most_body = SIZE_MAX);
  // The same for a request that must come: fails the test if it is another one.
  PeerRequest Expect(const std::string& line, std::size_t most_body = SIZE_MAX);

  // Answers with a status ("204 No Content"), header lines and a body of known length.
  void Answer(const std::string& status, const std::vector<std::string>& headers = {},
              const std::string& body = {});
  // Sends bytes as they are; returns false once the client has hung up.
  bool Send(const std::string& bytes);
  // Breaks the connection off.
  void Drop();
  // Accepts no more connections and breaks off the present one.
  void GoDown();

 private:
  // Waits until there is something to read or the client has ended (false).
  [[nodiscard]] bool AwaitBytes();
  bool ReadMore();

  int listener_ = -1;
  int connection_ = -1;
  int client_ended_ = -1;  // readable once the client is done
  std::string url_;
  std::string received_;
  std::future<bool> client_;
};

// A TLS server on loopback with an untrusted certificate. It would answer any request with 200 and
// a page, but no client should get that far.
class UnknownTlsServer {
 public:
  UnknownTlsServer();
  ~UnknownTlsServer();
  UnknownTlsServer(const UnknownTlsServer&) = delete;
  UnknownTlsServer& operator=(const UnknownTlsServer&) = delete;

  // "https://127.0.0.1:1234/"
  [[nodiscard]] std::string Url() const;

 private:
  std::FILE* server_ = nullptr;
  int port_ = 0;
};

}  // namespace vosk::support
