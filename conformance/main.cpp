// Says which promises of a lower layer are kept: one line for each that is not, with its operation.

#include "Clause.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned int SECONDS_OF_A_CLAUSE = 20;
constexpr char KEPT = 'K', BROKEN = 'B', SKIPPED = 'S';
constexpr int EXIT_KEPT = 0, EXIT_BROKEN = 1, EXIT_USAGE = 2;

int answers = -1;  // where the process of a clause writes what became of it

// An answer has to be written: a layer that ends the process has given none, whatever its exit
// code.
[[noreturn]] void AnswerGive(const std::string& answer) {
  const ssize_t written = write(answers, answer.data(), answer.size());
  _exit(written == static_cast<ssize_t>(answer.size()) ? 0 : 1);
}

std::string PipeRead(int descriptor) {
  std::string text;
  char bytes[256];
  for (ssize_t count = 1; count > 0;) {
    count = read(descriptor, bytes, sizeof bytes);
    text.append(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  return text;
}

std::string EndDescribe(int status) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    return "it did not end within " + std::to_string(SECONDS_OF_A_CLAUSE) + " s";
  if (WIFSIGNALED(status))
    return "ended by signal " + std::to_string(WTERMSIG(status));
  return "it ended the process";
}

// The answer with its reason behind it. Without one the clause is broken.
std::string ClauseRun(const Clause& clause) {
  int ends[2];
  if (pipe(ends) != 0)
    return std::string(1, SKIPPED) + "no pipe";
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    answers = ends[1];
    alarm(SECONDS_OF_A_CLAUSE);
    AnswerGive({clause.isKept() ? KEPT : BROKEN});
  }
  close(ends[1]);
  std::string answer = PipeRead(ends[0]);
  close(ends[0]);
  int status = 0;
  if (child < 0)
    return std::string(1, SKIPPED) + "no process";
  waitpid(child, &status, 0);
  return !answer.empty() ? answer : BROKEN + EndDescribe(status);
}

void LinePrint(const char* what, const Clause& clause, const std::string& reason) {
  std::printf("%s: %s: %s%s%s%s\n", what, clause.symbol, clause.text, reason.empty() ? "" : " (",
              reason.c_str(), reason.empty() ? "" : ")");
}

int ClausesRun(const Clauses& clauses) {
  int kept = 0, broken = 0, skipped = 0;
  for (const Clause& clause : clauses) {
    const std::string answer = ClauseRun(clause);
    if (answer[0] == KEPT) {
      ++kept;
      continue;
    }
    ++(answer[0] == SKIPPED ? skipped : broken);
    LinePrint(answer[0] == SKIPPED ? "skipped" : "broken", clause, answer.substr(1));
  }
  std::printf("conformance: %zu clauses: %d kept, %d broken, %d skipped\n", clauses.size(), kept,
              broken, skipped);
  return broken == 0 ? EXIT_KEPT : EXIT_BROKEN;
}

Clauses EveryClauseGet() {
  Clauses every;
  for (const Clauses& part :
       {ClockClauses(), LockClauses(), DebugPrintClauses(), AddressClauses(), DGramClauses(),
        OptionClauses(), StreamClauses(), ListClauses(), TableClauses(),
#ifdef VORN_CONFORMANCE_PROGRAMS
        ProgramClauses(), ProgramContainerClauses()
#endif
       })
    every.insert(every.end(), part.begin(), part.end());
  return every;
}

// The clauses of the operations that are named; none for a name that no operation has.
Clauses NamedClausesGet(const Clauses& every, char** names, int count) {
  Clauses named;
  for (int i = 0; i < count; ++i) {
    const auto isNamed = [&](const Clause& clause) {
      return std::strcmp(clause.symbol, names[i]) == 0;
    };
    if (std::none_of(every.begin(), every.end(), isNamed)) {
      std::fprintf(stderr, "conformance: no clause about %s\n", names[i]);
      return {};
    }
    std::copy_if(every.begin(), every.end(), std::back_inserter(named), isNamed);
  }
  return named;
}

int UsagePrint(std::FILE* stream, int exitCode) {
  std::fputs("usage: conformance [--list | OPERATION...]\n"
             "Checks the lower layer that it is linked with: every clause, or those of the named\n"
             "operations. Prints a line for each clause that is broken or could not be checked.\n"
             "  --list   prints the clauses\n"
             "Exit codes: 0 no clause is broken, 1 some are, 2 wrong argument.\n",
             stream);
  return exitCode;
}

}  // namespace

void ClauseSkip(const std::string& reason) { AnswerGive(SKIPPED + reason); }
void ClauseBreak(const std::string& part) { AnswerGive(BROKEN + part); }

int main(int argumentCount, char** arguments) {
  const Clauses every = EveryClauseGet();
  const std::string first = argumentCount > 1 ? arguments[1] : "";
  if (first == "--help")
    return UsagePrint(stdout, EXIT_KEPT);
  if (first == "--list" && argumentCount == 2) {
    for (const Clause& clause : every)
      std::printf("%s: %s\n", clause.symbol, clause.text);
    return EXIT_KEPT;
  }
  if (first.rfind('-', 0) == 0)
    return UsagePrint(stderr, EXIT_USAGE);
  const Clauses chosen =
      first.empty() ? every : NamedClausesGet(every, arguments + 1, argumentCount - 1);
  return chosen.empty() ? EXIT_USAGE : ClausesRun(chosen);
}
