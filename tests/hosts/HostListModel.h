#ifndef HOSTS_HOST_LIST_MODEL_H
#define HOSTS_HOST_LIST_MODEL_H

#include "hosts/VORNEnvironment.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

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

/// How the library, which filters `input` in blocks of `sizes` by turns, differs from the model:
/// nothing if it does not.
inline std::string FilterDifference(const std::string& input, std::size_t limit, char separator,
                                    const std::vector<std::size_t>& sizes) {
  const HostListModel model(input, limit, separator);
  std::string output(limit + 1, '!');
  FilterStatus status{1, 0};
  int overflow = 0;
  std::size_t count = 0, at = 0;
  for (std::size_t block = 0; at < input.size() && overflow == 0; ++block) {
    const std::string part = input.substr(at, sizes[block % sizes.size()]);
    at += part.size();
    count += static_cast<std::size_t>(
        FilterWhitespace(&status, &overflow, &output[count], static_cast<int>(limit - count),
                         part.data(), static_cast<int>(part.size()), separator, '#'));
  }
  if (output.substr(0, count) != model.text)
    return "another text than the model's";
  if (output.find_first_not_of('!', count) != std::string::npos)
    return "bytes behind the text";
  return (overflow != 0) == model.overflow ? "" : "too long for one and not for the other";
}

#endif
