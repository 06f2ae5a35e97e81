#ifndef HOSTS_HOST_LIST_MODEL_H
#define HOSTS_HOST_LIST_MODEL_H

#include <algorithm>
#include <cstddef>
#include <string>

/// What filtering a whole text at once comes to, told line by line.
struct HostListModel {
  std::string text;  ///< what is written, at most `limit` bytes
  bool overflow;

  HostListModel(const std::string& input, std::size_t limit, char separator = ':') {
    for (std::size_t at = 0; at < input.size();) {
      const std::size_t end = std::min(input.find('\n', at), input.size());
      text += input.substr(at, std::min(input.find('#', at), end) - at);
      text += end < input.size() ? "\n" : "";
      at = end + 1;
    }
    for (const char blank : {'\t', '\n', ' '})
      std::replace(text.begin(), text.end(), blank, separator);
    const auto both = [separator](char a, char b) { return a == separator && b == separator; };
    text.erase(std::unique(text.begin(), text.end(), both), text.end());
    text.erase(0, !text.empty() && text.front() == separator ? 1 : 0);
    const std::size_t last = text.find_last_not_of(separator);
    overflow = last != std::string::npos && last >= limit;
    text.resize(std::min(text.size(), limit));
  }
};

#endif
