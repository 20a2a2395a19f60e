#include <zq/foundation/Exception.h>

#include <zq/foundation/Text.h>

#include <new>
#include <ostream>

namespace zq {

const std::string Exception::k_stringNotSet;
const unsigned long long Exception::k_lineNotSet = 0xFFFFFFFFFFFFFFFFull;

namespace {

const char kCausedBy[] = "\n caused by: ";
const wchar_t kCausedByWide[] = L"\n caused by: ";
const char kNoMessage[] =
    "No error message set! Please overwrite void Exception::generateWhat( zqstring & o_what_str )!";

template <class E>
Exception* cloneAs(const E& e) {
  return new (std::nothrow) E(e);
}

}  // namespace

Exception* Exception::cloneOf(const Exception* e) { return e ? e->clone() : nullptr; }

Exception::Exception(const std::string& what, const Exception* cause) noexcept
    : m_whatGenerated(false), m_what(what), m_cause(cloneOf(cause)) {}

Exception::Exception(const Exception& other) noexcept
    : std::exception(other),
      m_whatGenerated(other.m_whatGenerated),
      m_what(other.m_what),
      m_cause(cloneOf(other.m_cause)) {}

Exception& Exception::operator=(const Exception& other) noexcept {
  if (this == &other) return *this;
  m_whatGenerated = other.m_whatGenerated;
  m_what = other.m_what;
  m_cause = cloneOf(other.m_cause);  // the old chain is left alive on purpose
  return *this;
}

Exception::~Exception() { delete m_cause; }

const char* Exception::what() const noexcept { return whatStr().c_str(); }

const std::string& Exception::whatStr() const noexcept {
  if (!m_whatGenerated) {
    generateWhat(m_what);
    m_whatGenerated = true;
  }
  return m_what;
}

void Exception::generateWhat(std::string& o_what_str) const {
  if (m_what.empty()) o_what_str = kNoMessage;
}

Exception* Exception::clone() const { return cloneAs(*this); }

void Exception::setCause(const Exception* cause) {
  if (cause == m_cause) return;
  delete m_cause;
  m_cause = cloneOf(cause);
}

void Exception::setWhatString(const std::string& what) {
  if (&what != &m_what) m_what = what;
}

std::ostream& Exception::writeTo(std::ostream& os) const {
  os << what();
  return printCauses(os);
}

std::ostream& Exception::printCauses(std::ostream& os) const {
  for (const Exception* c = m_cause; c; c = c->cause()) {
    os << kCausedBy << c->what();
    c->printCauses(os);
  }
  return os;
}

std::wostream& Exception::writeTo(std::wostream& os) const {
  os << wconvert(what());
  for (const Exception* c = m_cause; c; c = c->cause()) {
    os << kCausedByWide << wconvert(c->what());
    c->printCauses(os);
  }
  return os;
}

std::wostream& Exception::printCauses(std::wostream& os) const {
  for (const Exception* c = m_cause; c; c = c->cause()) {
    os << kCausedByWide;
    c->writeTo(os);
  }
  return os;
}

void Exception::printStackTrace(std::ostream&, const std::exception&) {}
void Exception::printStackTrace(std::wostream&, const std::exception&) {}

LogicError::LogicError(const std::string& what, const Exception* cause) noexcept : Exception(what, cause) {}
LogicError::LogicError(const LogicError& other) noexcept : Exception(other) {}
LogicError& LogicError::operator=(const LogicError& other) noexcept {
  Exception::operator=(other);
  return *this;
}
Exception* LogicError::clone() const { return cloneAs(*this); }

RuntimeError::RuntimeError(const std::string& what, const Exception* cause) noexcept : Exception(what, cause) {}
RuntimeError::RuntimeError(const RuntimeError& other) noexcept : Exception(other) {}
RuntimeError& RuntimeError::operator=(const RuntimeError& other) noexcept {
  Exception::operator=(other);
  return *this;
}
Exception* RuntimeError::clone() const { return cloneAs(*this); }

}  // namespace zq
