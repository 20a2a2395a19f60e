// The signal system's printed reports: what a publisher declares and has connected, what the
// calling thread is emitting, and signatures. The texts are fixed word for word.
#include <zq/signals/SignalPublisher.h>

#include <stdexcept>
#include <typeinfo>

namespace zq {
namespace {

// What the report says of a connection's kind, flags masked off; nothing for other values.
struct KindText {
  const char* banner;  // in the publisher's report
  const char* label;   // in a call stack
};
const KindText* kindText(ConnectionType type) {
  static const KindText kTexts[] = {
      {"----direct----", "  direct"}, {"----queued----", "  queued"}, {"---blocking---", "  blocking"}};
  switch (static_cast<unsigned int>(type) & ~kConnectionFlagsMask) {
    case Direct:
      return &kTexts[0];
    case Queued:
      return &kTexts[1];
    case Blocking:
      return &kTexts[2];
    default:
      return nullptr;
  }
}

// The dynamic type and the address of a polymorphic object: "Type@0x...". A null pointer
// raises std::bad_typeid.
template <class T>
std::ostream& printObject(std::ostream& os, const T* object) {
  print_type(os, typeid(*object)) << "@";
  return print_address(os, object);
}
}  // namespace

void SignalPublisher::printDebugInfo(std::ostream& os) const {
  os << "---- SignalPublisher Info ----" << std::endl;
  printObject(os, this) << std::endl;
  if (!m_declarations.empty()) {
    os << "--   Declared Signals       --" << std::endl;
    for (const auto& entry : m_declarations) {
      printDebugInfo(os, entry.second);
      os << std::endl;
    }
  }
  if (!m_connections.empty()) {
    os << "--   Connected Slots        --" << std::endl;
    for (const auto& entry : m_connections) {
      const auto declared = m_declarations.find(entry.first);
      // Only moveConnectionsTo can bring in a signal without a declaration; the report stops there.
      if (declared == m_declarations.end()) throw std::out_of_range("invalid unordered_map<K, T> key");
      for (const auto& connection : entry.second) {
        printDebugInfo(os, entry.first.c_str(), declared->second, connection);
        os << std::endl;
      }
    }
  }
  os << "-------------------------------" << std::endl;
}

void SignalPublisher::printDebugInfo(std::ostream& os, const SignalDeclaration& declaration) const {
  if (declaration.empty()) return;
  os << declaration[0].first << "\t(";
  printSignature(os, declaration) << ")";
}

// The shared pointer stays by value: overriders of this virtual have that signature.
void SignalPublisher::printDebugInfo(
    std::ostream& os, const char* signal, const SignalDeclaration& declaration,
    std::shared_ptr<ConnectionImpl> connection)  // NOLINT(performance-unnecessary-value-param)
    const {
  os << (signal != nullptr ? signal : "") << std::endl << "  --";
  if (const KindText* kind = kindText(connection->type())) os << kind->banner;
  os << "-->  ";
  connection->print_debug_info(os);
  if (declaration.empty())
    os << std::endl << "  (warning: undeclared signal)";
  else if (!connection->is_call_compatible(declaration))
    os << std::endl << "  (warning: type-mismatch)";
}

std::ostream& SignalPublisher::printCallStack(std::ostream& os) {
  for (const CallStackFrame& frame : callStack()) {
    printObject(os, frame.publisher.get()) << " emits " << frame.signal;
    if (frame.args) {
      os << " (";
      os.precision(80);  // stays set: long strings are cut at 80 characters
      os << *frame.args << ")\n";
    }
    os << "  through ";
    printObject(os, frame.connection.get()) << "\n";
    if (const KindText* kind = kindText(frame.connection->type())) os << kind->label;
    os << " to ";
    frame.connection->print_debug_info(os);
    os << "\n";
  }
  return os;
}

std::ostream& SignalPublisher::printSignature(std::ostream& os, const SignalDeclaration& declaration) {
  for (std::size_t i = 1; i < declaration.size(); ++i) {
    if (i != 1) os << ",";
    print_type(os, declaration[i].first);
  }
  return os;
}

std::ostream& SignalPublisher::printSignature(std::ostream& os, const std::shared_ptr<ArgumentVector>& args) {
  if (!args) return os;
  for (std::size_t i = 0; i < ArgumentVector::max; ++i) {
    const Argument* argument = (*args)[i];
    if (argument == nullptr) continue;
    if (i != 0) os << ",";
    print_type(os, argument->m_type.first);
  }
  return os;
}
}  // namespace zq
