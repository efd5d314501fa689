#include "platform/Timing.h"

namespace quillon {

Timing& timing() {
    static Timing table;
    return table;
}

}  // namespace quillon
