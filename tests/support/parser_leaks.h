// Keeps the XML parser's own leaks out of the leak checker's account.
#ifndef TESTS_SUPPORT_PARSER_LEAKS_H
#define TESTS_SUPPORT_PARSER_LEAKS_H

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TESTS_WITH_LEAK_CHECKER
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TESTS_WITH_LEAK_CHECKER
#endif

#ifdef TESTS_WITH_LEAK_CHECKER
#include <sanitizer/lsan_interface.h>
#endif

// The parser loses what it had built so far when an allocation fails inside it. While an object lives, what this thread
// allocates is not looked for; so leaks of our own need a test that does without the parser.
class CParserLeaks {
 public:
#ifdef TESTS_WITH_LEAK_CHECKER
  CParserLeaks() { __lsan_disable(); }
  ~CParserLeaks() { __lsan_enable(); }
#else
  CParserLeaks() {}
#endif
  CParserLeaks(const CParserLeaks&) = delete;
  CParserLeaks& operator=(const CParserLeaks&) = delete;
};

#endif
