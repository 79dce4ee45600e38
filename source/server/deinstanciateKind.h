// The values of OstrelValue::deinstanciateKind.
#pragma once

namespace deinstanciateKind {
constexpr unsigned int none = 0;
constexpr unsigned int one = 1;     // the instance pKey of name
constexpr unsigned int owners = 2;  // every instance of name that belongs to owner
}  // namespace deinstanciateKind
