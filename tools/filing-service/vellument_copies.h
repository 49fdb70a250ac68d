#ifndef VELLUMENT_FILING_SERVICE_VELLUMENT_COPIES_H
#define VELLUMENT_FILING_SERVICE_VELLUMENT_COPIES_H

// What the service learns from a vellument that a client stores: the e-filed copies of its current
// status, that is of the `Status` of its last `Transaction`.

#include <string>
#include <vector>

#include "store.h"

namespace fs_intake {

// The service's copy type for a filing type text of the document ("Federal" or "1" is "FED";
// State STATE; Local LOCAL; Employee and Recipient EMP), "" for the types the service keeps none of.
std::string copy_type(const std::string& filing_type);

// The e-filed copies (Efiled "true" or "1") of the document's current status, in document order.
// Text that is not a vellument gives none.
std::vector<fs_store::Copy> efiled_copies(const std::string& text);

} // namespace fs_intake

#endif
