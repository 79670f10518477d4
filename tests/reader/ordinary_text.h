// Text as logs hold it, without a single identifier: words and paths, password hashes, keys, mail
// in base 64, requests, runs of dots.
#ifndef TESTS_READER_ORDINARY_TEXT_H
#define TESTS_READER_ORDINARY_TEXT_H

#include <random>
#include <string>

namespace builder {

class ordinary_text {
 public:
  explicit ordinary_text(std::uint64_t seed) : random_(seed) {}

  void append_line(std::string &text) {
    switch (random_() % 8) {
      case 0:
        text += "Nov 14 22:13:20 host daemon[4711]: cannot open /usr/lib/x86_64-linux-gnu/thing.so.1: No such file\n";
        return;
      case 1:
        text += "user:$6$" + digits(kCrypt, 16) + "$" + digits(kCrypt, 86) + ":19000:0:99999:7:::\n";
        return;
      case 2:
        text += digits(kBase64, 76) + "\r\n";
        return;
      case 3:
        text += "ssh-rsa " + digits(kBase64, 372) + "== user@host\n";
        return;
      case 4:
        text += "................................................................................ ok\n";
        return;
      case 5:
        text += "root:$y$j9T$" + digits(kCrypt, 22) + "$" + digits(kCrypt, 43) + ":19676:0:99999:7:::\n";
        return;
      case 6:
        text +=
            "Nov 14 22:13:20 host sshd[99]: Accepted publickey for u from 10.0.0.1 port 4711 ssh2: ED25519 SHA256:" +
            digits(kBase64, 43) + "\n";
        return;
      default:
        text += "10.0.0.1 - - [14/Nov/2023:22:13:20 +0000] \"GET /a/../b/./c/" + digits(kCrypt, 24) +
                "?token=" + digits(kCrypt, 40) + "&x=1 HTTP/1.1\" 200 4711\n";
    }
  }

 private:
  static constexpr char kCrypt[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  static constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

  std::string digits(const char *alphabet, std::size_t count) {
    std::string out(count, ' ');
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < count; ++i, bits >>= 6) {
      if (i % 10 == 0) bits = random_();
      out[i] = alphabet[bits & 63];
    }
    return out;
  }

  std::mt19937_64 random_;
};

}  // namespace builder

#endif
