// The library's exception family: Exception, LogicError and RuntimeError.
//
// An exception carries a narrow message, generated lazily on the first what(), and an owned
// chain of causes; every way of installing a cause clones it, so a chain is never shared.
// Not thread-safe: the first what() writes to the object. Own it on the catching thread.
#pragma once

#include <zq/Export.h>

#include <exception>
#include <iosfwd>
#include <string>

namespace zq {

class ZQ_API Exception : public std::exception {
 public:
  // Default of the message argument.
  static const std::string k_stringNotSet;
  // Marks an unset source line, for clients.
  static const unsigned long long k_lineNotSet;

  explicit Exception(const std::string& what = k_stringNotSet, const Exception* cause = nullptr) noexcept;
  Exception(const Exception& other) noexcept;
  // Copies the text and clones the other's cause. The previous cause is deliberately not
  // deleted: a pointer taken from cause() before the assignment stays valid after it.
  Exception& operator=(const Exception& other) noexcept;
  ~Exception() override;

  const char* what() const noexcept override;
  const std::string& whatStr() const noexcept;
  const Exception* cause() const noexcept { return m_cause; }

  // The text, then each cause after "\n caused by: ". A cause d links down is printed
  // 2^(d-1) times; the repetition belongs to the format. No trailing newline.
  std::ostream& writeTo(std::ostream& os) const;
  std::wostream& writeTo(std::wostream& os) const;
  // The causes only, in the same form.
  std::ostream& printCauses(std::ostream& os) const;
  std::wostream& printCauses(std::wostream& os) const;

  Exception& reference() { return *this; }
  const Exception& reference() const { return *this; }

  // Kept for interface compatibility; writes nothing.
  static void printStackTrace(std::ostream& os, const std::exception& e);
  static void printStackTrace(std::wostream& os, const std::exception& e);

 protected:
  // Called once, at the first what(). The default sets a reminder text when no message was given.
  virtual void generateWhat(std::string& o_what_str) const;
  // A heap copy of the same dynamic type, or null when allocation fails.
  virtual Exception* clone() const;

  void setCause(const Exception* cause);
  void setCause(const Exception& cause) { setCause(&cause); }
  void setWhatString(const std::string& what);
  const std::string& whatString() const { return m_what; }

 private:
  static Exception* cloneOf(const Exception* e);

  mutable bool m_whatGenerated;
  mutable std::string m_what;
  Exception* m_cause;
};

// A broken precondition in the caller; exported for clients, the library throws none.
class ZQ_API LogicError : public Exception {
 public:
  explicit LogicError(const std::string& what = k_stringNotSet, const Exception* cause = nullptr) noexcept;
  LogicError(const LogicError& other) noexcept;
  LogicError& operator=(const LogicError& other) noexcept;

 protected:
  Exception* clone() const override;
};

// A failure found at run time; what the library itself throws.
class ZQ_API RuntimeError : public Exception {
 public:
  explicit RuntimeError(const std::string& what = k_stringNotSet, const Exception* cause = nullptr) noexcept;
  RuntimeError(const RuntimeError& other) noexcept;
  RuntimeError& operator=(const RuntimeError& other) noexcept;

 protected:
  Exception* clone() const override;
};

}  // namespace zq
