#include "common/product_version.h"

#include <morva_version.h>

namespace media::win::chrome_inspect {

const char* const productVersion = MORVA_VERSION;

}  // namespace media::win::chrome_inspect
