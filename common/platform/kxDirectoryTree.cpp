#include "platform/kxDirectoryTree.h"

#include <cerrno>
#include <cstring>

#include "base/kxStatus.h"
#include "platform/kxPlatformErrors.h"
#include "platform/kxWin32.h"

bool kxDirectoryTree::IsSeparator(char c) const {
    return c != '\0' && strchr(separators_, c) != nullptr;
}

const char* kxDirectoryTree::Cut(size_t n) {
    if (cut_ < length_) name_[cut_] = cutSeparator_;
    cut_ = length_;
    if (n < length_) {
        cutSeparator_ = name_[n];
        name_[n] = '\0';
        cut_ = n;
    }
    return name_;
}

long kxDirectoryTree::FailParents(long status, size_t failedLevel) {
    size_t parent = failedLevel;
    for (size_t i = pending_.size(); i-- > 0;) {
        if (pending_[i] <= parent) continue;
        ParentFailed(status, Cut(parent));
        parent = pending_[i];
    }
    Cut(length_);
    return status;
}

long kxDirectoryTree::Make(char* name, size_t length, _SECURITY_ATTRIBUTES* sa, bool* created) {
    if (created != nullptr) *created = false;
    name_ = name;
    length_ = cut_ = length;
    pending_.clear();
    size_t level = length_;
    for (;;) {
        bool missing = false;
        const long status = Examine(Cut(level), missing);
        if (status != KX_OK) return FailParents(status, level);
        if (!missing) break;
        pending_.push_back(level);
        // The parent ends before the last run of separators that does not start the name.
        size_t slash = level;
        while (slash > 1 && !IsSeparator(name_[slash - 1])) --slash;
        if (slash <= 1) break;
        level = slash - 1;
        while (level > 1 && IsSeparator(name_[level - 1])) --level;
    }

    while (!pending_.empty()) {
        level = pending_.back();
        pending_.pop_back();
        if (!CreateDirectoryA(Cut(level), sa)) {
            const int error = static_cast<int>(GetLastError());
            // Made by someone else since it was examined: as good as made here.
            const DWORD now = error == EEXIST ? GetFileAttributesA(name_) : INVALID_FILE_ATTRIBUTES;
            if (now != INVALID_FILE_ATTRIBUTES && (now & FILE_ATTRIBUTE_DIRECTORY)) continue;
            return FailParents(CreateFailed(name_, error), level);
        }
        if (level == length_ && created != nullptr) *created = true;
    }
    Cut(length_);
    return KX_OK;
}
