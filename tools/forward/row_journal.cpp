#include "forward/row_journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "base/messages.h"
#include "base/output_file.h"
#include "base/system_write.h"

#ifndef VOXLITH_VERSION
#error "VOXLITH_VERSION must be the version of the program"
#endif

namespace voxlith {

namespace {

std::string unfinishedNameOf(const std::string& outFile) {
    return outFile + ".unfinished";
}

std::string journalNameOf(const std::string& outFile) {
    return unfinishedNameOf(outFile) + ".rows";
}

template <class Value>
void put(std::string& bytes, Value value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// What has to be the same for rows to be the same, besides the head of the file.
std::string journalHead(const MtxContent& content, bool sumBelow, double tolerance) {
    std::string head = "voxlith rows 1 " VOXLITH_VERSION "\n";
    put(head, tolerance);
    put(head, static_cast<std::int32_t>(sumBelow));
    put(head, static_cast<std::int32_t>(content.form));
    for (const std::int32_t cells : content.survey.ground.inactiveCells) {
        put(head, cells);
    }
    for (const FieldDirection& direction : content.survey.measuredHere) {
        put(head, direction.incl);
        put(head, direction.decl);
    }
    for (const double number :
         {content.survey.field.direction.incl, content.survey.field.direction.decl, content.survey.field.strength,
          content.survey.measured.incl, content.survey.measured.decl, content.survey.magnetisation.incl,
          content.survey.magnetisation.decl, content.survey.cavity.xx, content.survey.cavity.yy,
          content.survey.cavity.zz, content.survey.cavity.xy, content.survey.cavity.xz, content.survey.cavity.yz}) {
        put(head, number);
    }
    return head;
}

// The head of the sensitivity file as bytes, by way of a file beside it.
std::string fileHead(const std::string& outFile, const MtxContent& content) {
    const std::string name = outFile + ".head";
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, name);
    writeHead(*file, content);
    finishOutputFile(*file);
    std::ifstream input(name, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(input), {}};
    input.close();
    std::filesystem::remove(name);
    return bytes;
}

bool startsWith(std::ifstream& input, const std::string& expected) {
    std::string found(expected.size(), '\0');
    input.read(found.data(), static_cast<std::streamsize>(found.size()));
    return input.gcount() == static_cast<std::streamsize>(found.size()) && found == expected;
}

// One record of the journal: count, check and loss of the row, a check of all of the record, and the layer responses.
struct JournalRecord {
    std::int64_t count = 0;
    std::uint64_t check = 0;
    double loss = 0;
    std::uint64_t checkOfAll = 0;
    std::vector<double> layers;
};

constexpr std::size_t recordHeadLength = 32;

std::uint64_t checkOfRecord(std::int64_t count, std::uint64_t check, double loss, std::span<const double> layers) {
    return addToCheck(addToCheck(check ^ static_cast<std::uint64_t>(count), {&loss, 1}), layers);
}

bool readRecord(std::ifstream& input, std::size_t layers, JournalRecord& record) {
    record.layers.resize(layers);
    input.read(reinterpret_cast<char*>(&record.count), sizeof record.count);
    input.read(reinterpret_cast<char*>(&record.check), sizeof record.check);
    input.read(reinterpret_cast<char*>(&record.loss), sizeof record.loss);
    input.read(reinterpret_cast<char*>(&record.checkOfAll), sizeof record.checkOfAll);
    input.read(reinterpret_cast<char*>(record.layers.data()), static_cast<std::streamsize>(8 * layers));
    return input && record.checkOfAll == checkOfRecord(record.count, record.check, record.loss, record.layers);
}

// The row is in the file, whole and with the bytes that it was written with.
bool isIntact(const StoredRows& stored, std::size_t row, std::size_t paddedCells, CompressedRow& work) {
    try {
        readStoredRow(stored, row, paddedCells, work);
    } catch (const RunError&) {
        return false;
    }
    return true;
}

void refuseFileInUse(const std::string& name) {
    const int handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (handle < 0) {
        return;
    }
    const bool free = ::flock(handle, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    ::close(handle);
    if (!free) {
        throw RunError(name + ": another process is writing this file");
    }
}

}  // namespace

RowJournal::~RowJournal() {
    if (handle >= 0) {
        ::close(handle);
    }
}

InterruptedRun findInterruptedRun(const std::string& outFile, const MtxContent& content, bool sumBelow,
                                  double tolerance) {
    InterruptedRun run;
    refuseFileInUse(unfinishedNameOf(outFile));
    std::ifstream journal(journalNameOf(outFile), std::ios::binary);
    std::ifstream part(unfinishedNameOf(outFile), std::ios::binary);
    if (!journal || !part) {
        return run;
    }
    const std::string head = fileHead(outFile, content);
    const std::string options = journalHead(content, sumBelow, tolerance);
    if (!startsWith(part, head) || !startsWith(journal, options)) {
        return run;
    }
    const std::size_t stations = content.survey.stations.size();
    const std::size_t layers = static_cast<std::size_t>(content.survey.mesh.nzl) + 1;
    const std::size_t paddedCells = paddedExtentsOf(content.survey.mesh).total();
    StoredRows& stored = run.stored;
    stored.files.emplace_back(unfinishedNameOf(outFile));
    run.keptBytes = static_cast<std::int64_t>(head.size());
    run.journalBytes = static_cast<std::int64_t>(options.size());
    JournalRecord record;
    CompressedRow work;
    while (run.rows < stations && readRecord(journal, layers, record) && record.count > 0 &&
           record.count <= static_cast<std::int64_t>(paddedCells)) {
        const auto count = static_cast<std::int32_t>(record.count);
        stored.rows.push_back({0, run.keptBytes + bytesBeforeCount(content.form), count, record.check, true});
        stored.loss.push_back(record.loss);
        if (!isIntact(stored, run.rows, paddedCells, work)) {
            stored.rows.pop_back();
            stored.loss.pop_back();
            break;
        }
        stored.layers.insert(stored.layers.end(), record.layers.begin(), record.layers.end());
        run.keptBytes += storedRowLength(content.form, count);
        run.journalBytes += static_cast<std::int64_t>(recordHeadLength + 8 * layers);
        ++run.rows;
    }
    return run;
}

void openUnfinishedFile(OutputFile& file, const std::string& outFile, const InterruptedRun& run) {
    const std::string name = unfinishedNameOf(outFile);
    if (name.size() >= file.name.size()) {
        throwSystemError(outFile, "cannot be created", ENAMETOOLONG);
    }
    if (run.rows == 0) {
        // Renaming keeps the lock of the file.
        openOutputFile(file, outFile);
        if (std::rename(file.temporaryName.data(), name.c_str()) != 0) {
            throwSystemError(name, "cannot be created", errno);
        }
    } else {
        const auto end = static_cast<off_t>(run.keptBytes);
        const int handle = ::open(name.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
        const bool locked = handle >= 0 && (::flock(handle, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK);
        if (!locked || ::ftruncate(handle, end) != 0 || ::lseek(handle, end, SEEK_SET) != end) {
            const int cause = errno;
            if (handle >= 0) {
                ::close(handle);
            }
            throwSystemError(name, "cannot be continued", cause);
        }
        file.handle = handle;
        file.name.fill('\0');
        std::copy(outFile.begin(), outFile.end(), file.name.begin());
    }
    file.temporaryName.fill('\0');
    std::copy(name.begin(), name.end(), file.temporaryName.begin());
    file.kept = true;
}

void openRowJournal(RowJournal& journal, const std::string& outFile, const MtxContent& content, bool sumBelow,
                    double tolerance, const InterruptedRun& run) {
    journal.name = journalNameOf(outFile);
    if (run.rows == 0) {
        ::unlink(journal.name.c_str());
    }
    const int create = run.rows == 0 ? O_CREAT | O_EXCL : 0;
    journal.handle = ::open(journal.name.c_str(), O_WRONLY | O_CLOEXEC | create, 0666);
    const std::string head = journalHead(content, sumBelow, tolerance);
    const bool ready =
        journal.handle >= 0 && (run.rows == 0 ? writeWhole(journal.handle, head.data(), head.size())
                                              : ::ftruncate(journal.handle, run.journalBytes) == 0 &&
                                                    ::lseek(journal.handle, 0, SEEK_END) == run.journalBytes);
    if (!ready) {
        throwSystemError(journal.name, "cannot be written", errno);
    }
}

void appendToJournal(RowJournal& journal, const CompressedRow& row, std::span<const double> layers) {
    std::string bytes;
    const auto count = static_cast<std::int64_t>(row.coefIndex.size());
    const std::uint64_t check = rowCheck(row.coefIndex, row.coefValue);
    put(bytes, count);
    put(bytes, check);
    put(bytes, row.loss);
    put(bytes, checkOfRecord(count, check, row.loss, layers));
    for (const double layer : layers) {
        put(bytes, layer);
    }
    if (!writeWhole(journal.handle, bytes.data(), bytes.size())) {
        journal.failed = true;
        throwSystemError(journal.name, "cannot be written", errno);
    }
}

void removeRowJournal(const RowJournal& journal) {
    if (!journal.name.empty()) {
        ::unlink(journal.name.c_str());
    }
}

}  // namespace voxlith
