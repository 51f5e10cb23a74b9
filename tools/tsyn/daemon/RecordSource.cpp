#include "tools/tsyn/daemon/RecordSource.h"

#include "tools/tsyn/daemon/SegmentSource.h"
#include "tools/tsyn/daemon/SpySource.h"

namespace tsyn {

std::unique_ptr<RecordSource> makeSource(const SourceOptions& options) {
    if (options.spy.empty()) {
        return std::make_unique<SegmentSource>(options.interfaceName);
    }
    return std::make_unique<SpySource>(spyAddress(options.spy).value_or(SpyAddress{}));
}

}  // namespace tsyn
