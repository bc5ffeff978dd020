#include "runtime/support/VornLogFile.h"

#include <algorithm>
#include <utility>

namespace VornSupport {

using VornPlatform::OsCondition;
using VornPlatform::OsError;

VornLogStorage::VornLogStorage() = default;
VornLogStorage::~VornLogStorage() = default;

OsError VornLogStorage::open(const std::string& path) { return file_.open(path); }
void VornLogStorage::close() { file_.close(); }
bool VornLogStorage::isOpen() const { return file_.isOpen(); }
OsError VornLogStorage::write(std::string_view bytes, std::size_t& written) {
    return file_.write(bytes, written);
}
OsError VornLogStorage::truncate() { return file_.truncate(); }
std::optional<std::uint64_t> VornLogStorage::size() const { return file_.size(); }
bool VornLogStorage::isAt(const std::string& path) const { return file_.isAt(path); }
OsError VornLogStorage::rename(const std::string& from, const std::string& to) {
    return VornPlatform::renameFile(from, to);
}

VornLogFile::VornLogFile(LostLine lostLine, std::unique_ptr<VornLogStorage> storage)
    : lostLine_(std::move(lostLine)), storage_(std::move(storage)) {}

VornLogFile::~VornLogFile() = default;

void VornLogFile::configure(const std::string& path, std::uint64_t maxBytes, int files) {
    if (path != path_) {
        storage_->close();
        path_ = path;
        problem_ = {};
        retryAt_ = {};
    }
    maxBytes_ = maxBytes;
    files_ = std::clamp(files, 0, kMostFiles);
    rotateAt_ = {};
}

void VornLogFile::open(TimePoint now) {
    if (!path_.empty()) makeReady(now);
}

void VornLogFile::write(std::string_view line, TimePoint now) {
    if (path_.empty() || now < retryAt_ || !catchUp(now) || !makeReady(now)) {
        hold(line);
        return;
    }
    if (put(line, now)) return;
    const std::size_t written = headWritten_;
    hold(line);
    headWritten_ = held_.empty() ? 0 : written;
}

bool VornLogFile::flush(TimePoint now) {
    retryAt_ = {};
    return !path_.empty() && catchUp(now);
}

void VornLogFile::hold(std::string_view line) {
    if (lost_ > 0 || heldBytes_ + line.size() > kMostHeld) {
        ++lost_;
        return;
    }
    held_.emplace_back(line);
    heldBytes_ += line.size();
}

// True when nothing is held back any more.
bool VornLogFile::catchUp(TimePoint now) {
    while (!held_.empty() || lost_ > 0) {
        if (!makeReady(now)) return false;
        if (held_.empty()) {
            held_.push_back(lostLine_(std::exchange(lost_, 0)));
            heldBytes_ = held_.front().size();
        }
        if (!put(held_.front(), now)) return false;
        heldBytes_ -= held_.front().size();
        held_.pop_front();
    }
    return true;
}

OsError VornLogFile::tryToOpen() {
    const OsError error = storage_->open(path_);
    if (error) problem_ = error;
    return error;
}

// Sees to it that the name leads to the open file.
bool VornLogFile::makeReady(TimePoint now) {
    const bool stale = now - checkedAt_ >= kRetry;
    if (storage_->isOpen() && stale && !storage_->isAt(path_)) storage_->close();
    if (storage_->isOpen() && !stale) return true;
    checkedAt_ = now;
    if (!storage_->isOpen()) {
        headWritten_ = 0;  // a line begun in the file before is begun anew in this one
        if (tryToOpen()) {
            retryAt_ = now + kRetry;
            return false;
        }
    }
    const auto size = storage_->size();
    rotatable_ = size.has_value();
    fileBytes_ = size.value_or(0);
    return true;
}

// Writes what headWritten_ leaves of the line. False when that did not work to
// the end; headWritten_ then says how far it went.
bool VornLogFile::put(std::string_view line, TimePoint now) {
    const bool full = maxBytes_ != 0 && fileBytes_ != 0 && fileBytes_ + line.size() > maxBytes_;
    if (full && rotatable_ && headWritten_ == 0 && now >= rotateAt_) {
        rotate(now);
        if (!storage_->isOpen()) return false;
    }
    std::size_t written = 0;
    const OsError error = storage_->write(line.substr(headWritten_), written);
    fileBytes_ += written;
    headWritten_ += written;
    if (headWritten_ >= line.size()) {
        headWritten_ = 0;
        problem_ = {};
        return true;
    }
    const OsCondition condition = error.condition();
    const bool willPass = !error || condition == OsCondition::NoSpace ||
                          condition == OsCondition::WouldBlock ||
                          condition == OsCondition::Interrupted;
    if (!willPass) storage_->close();
    if (!willPass || condition == OsCondition::NoSpace) problem_ = error;
    retryAt_ = now + kRetry;
    return false;
}

void VornLogFile::rotate(TimePoint now) {
    if (files_ == 0 ? storage_->truncate() : shiftFiles()) rotateAt_ = now + kRetry;
    if (!storage_->isOpen() && tryToOpen()) {
        retryAt_ = now + kRetry;
        return;
    }
    checkedAt_ = now;
    fileBytes_ = storage_->size().value_or(0);
}

OsError VornLogFile::shiftFiles() {
    storage_->close();
    const auto name = [this](int number) { return path_ + '.' + std::to_string(number); };
    for (int number = files_; number > 1; --number) {
        const OsError error = storage_->rename(name(number - 1), name(number));
        if (error && error.condition() != OsCondition::NotFound) return error;
    }
    return storage_->rename(path_, name(1));
}

}  // namespace VornSupport
