#include <picture/KrTrajectoryFile.h>

#include <picture/KrNamedJoint.h>
#include <picture/KrValueText.h>
#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <set>
#include <utility>

namespace
{

/// A column of a trajectory.
struct Column
{
    enum Kind
    {
        Time,
        Position, ///< of `joint`
        Ignored
    };
    Kind kind = Ignored;
    KrNamedJoint joint;
    // Positions outside the joint's limits: of many, one is told.
    std::size_t numBeyond = 0;
    std::string firstBeyond;
};

/// Where lines come from.
class Source
{
public:
    virtual ~Source() = default;
    /// False at the end, and when it fails: `reason` says why then.
    virtual bool readLine(std::string& line, std::string& reason) = 0;
};

/// Line by line: the numbers are kept, the text is not.
class FileSource : public Source
{
public:
    explicit FileSource(KrInputFile& file)
        : m_file(file)
    {
    }
    bool readLine(std::string& line, std::string& reason) override
    {
        const bool isRead = m_file.readLine(line, Kr::Limits::kTextLine);
        reason = m_file.reason();
        return isRead;
    }

private:
    KrInputFile& m_file;
};

/// With the bound on lines that files have.
class TextSource : public Source
{
public:
    explicit TextSource(const std::string& text)
        : m_text(text)
    {
    }
    bool readLine(std::string& line, std::string& reason) override
    {
        if (m_start >= m_text.size()) {
            return false;
        }
        const std::size_t end = std::min(m_text.find('\n', m_start), m_text.size());
        if (end - m_start > Kr::Limits::kTextLine) {
            reason = "it has a line of more than " + std::to_string(Kr::Limits::kTextLine >> 20) + " MiB";
            return false;
        }
        line = m_text.substr(m_start, end - m_start);
        m_start = end + 1;
        return true;
    }

private:
    const std::string& m_text;
    std::size_t m_start = 0;
};

/// The cells of a line; a cell may stand in quotation marks.
std::vector<std::string> cellsOf(const std::string& line)
{
    std::vector<std::string> cells = KrValueText::split(line, ',');
    for (std::string& cell : cells) {
        if (cell.size() > 1 && cell.front() == '"' && cell.back() == '"') {
            cell = cell.substr(1, cell.size() - 2);
        }
    }
    return cells;
}

/// Reads one trajectory. Every function gives false when it fails; m_reason says why.
class Reader
{
public:
    Reader(const KrStatedSystem& system, Source& source, std::string name, std::vector<std::string>& warnings,
           std::string& reason)
        : m_system(system)
        , m_source(source)
        , m_name(std::move(name))
        , m_warnings(warnings)
        , m_reason(reason)
    {
    }

    bool read(KrMotion& motion);

private:
    bool fail(const std::string& sentence)
    {
        m_reason = sentence;
        return false;
    }
    bool failHere(const std::string& clause) { return fail(where() + ": " + clause); }

    /// The next line that holds something: not blank, no comment. `isEnd` at the end.
    bool nextLine(bool& isEnd);
    /// Where the last line stands, to begin a sentence.
    std::string where() const { return m_name + ", line " + std::to_string(m_number); }
    bool isJoint(const std::string& name) const;
    bool readHeader();
    bool addColumn(const std::string& name, std::string& followers);
    bool readRow(bool isFirst);
    void tellOfPositionsBeyond();

    const KrStatedSystem& m_system;
    Source& m_source;
    std::string m_name;
    std::vector<std::string>& m_warnings;
    std::string& m_reason;
    std::string m_line;
    std::size_t m_number = 0;
    std::vector<Column> m_columns;
    std::set<std::pair<unsigned int, const KrJointKinematics*>> m_seen;
    double m_time = 0.0;
    std::vector<double> m_positions; ///< of the joints that move, in the last row
};

bool Reader::nextLine(bool& isEnd)
{
    std::string reason;
    isEnd = false;
    while (m_source.readLine(m_line, reason)) {
        if (++m_number == 1 && m_line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            m_line.erase(0, 3); // a byte order mark
        }
        // A text has no such byte: this is a picture or an archive, given by mistake.
        if (m_line.find('\0') != std::string::npos) {
            return fail(m_name + " is binary, not a CSV file");
        }
        const std::size_t first = m_line.find_first_not_of(" \t\r");
        if (first != std::string::npos && m_line[first] != '#') {
            return true;
        }
    }
    // An end with a reason is a source that failed.
    isEnd = true;
    return reason.empty() || fail(m_name + ": " + reason);
}

bool Reader::isJoint(const std::string& name) const
{
    const KrXmlVectorType<KrIndividualManipulator>& all = m_system.manipulatorSystem().manipulators();
    return std::any_of(all.begin(), all.end(), [&name](const KrIndividualManipulator& manipulator) {
        return manipulator.jointIndex(name) >= 0;
    });
}

bool Reader::addColumn(const std::string& name, std::string& followers)
{
    if (name.empty()) {
        return failHere("a column has no name");
    }
    // A joint may be called "t": the column is its own then.
    if ((name == "time" || name == "t") && !isJoint(name)) {
        if (std::any_of(m_columns.begin(), m_columns.end(), [](const Column& c) { return c.kind == Column::Time; })) {
            return failHere("there are two columns of times");
        }
        m_columns.push_back({Column::Time, {}, 0, {}});
        return true;
    }
    KrNamedJoint joint;
    std::string reason;
    if (!KrNamedJoint::find(m_system, name, joint, reason)) {
        return failHere(reason);
    }
    if (joint.kinematics->isMimic()) {
        // Logs of joint states have them. What they follow says where they are.
        followers += (followers.empty() ? "" : ", ") + name;
        m_columns.push_back({Column::Ignored, joint, 0, {}});
        return true;
    }
    if (!KrNamedJoint::findFree(m_system, name, joint, reason)) {
        return failHere(reason);
    }
    // By the joint: it may be named in two ways.
    if (!m_seen.insert({joint.manipulator, joint.kinematics}).second) {
        return failHere("joint \"" + name + "\" has two columns");
    }
    m_columns.push_back({Column::Position, joint, 0, {}});
    return true;
}

bool Reader::readHeader()
{
    bool isEnd = false;
    if (!nextLine(isEnd)) {
        return false;
    }
    if (isEnd) {
        return fail(m_name + " is empty: a header that names joints is expected");
    }
    std::string followers;
    for (const std::string& name : cellsOf(m_line)) {
        if (!addColumn(name, followers)) {
            return false;
        }
    }
    // One warning for all of them.
    if (!followers.empty()) {
        m_warnings.push_back(where() +
                             ": columns of joints that follow another are not read: " + KrText::oneLine(followers));
    }
    return true;
}

bool Reader::readRow(bool isFirst)
{
    // The column of times may stand anywhere in the row.
    const double timeBefore = m_time;
    const std::vector<std::string> words = cellsOf(m_line);
    // Never filled up: which value is missing, nobody can tell.
    if (words.size() != m_columns.size()) {
        return failHere(std::to_string(words.size()) + " values for " + std::to_string(m_columns.size()) + " columns");
    }
    // In the order of the columns, which is that of the motion's joints.
    m_positions.clear();
    for (std::size_t k = 0; k < words.size(); ++k) {
        Column& column = m_columns[k];
        if (column.kind == Column::Time && !KrValueText::number(words[k], m_time)) {
            return failHere("\"" + KrText::oneLine(words[k]) + "\" is no number");
        }
        if (column.kind == Column::Time && !isFirst && !(m_time > timeBefore)) {
            return failHere("the time " + KrText::oneLine(words[k]) + " is not later than that of the row before");
        }
        if (column.kind == Column::Position) {
            double position = 0.0;
            std::string reason;
            if (!column.joint.readPosition(words[k], position, reason)) {
                return failHere(reason);
            }
            m_positions.push_back(position);
            // Drawn all the same; a warning tells of it.
            if (column.joint.isBeyond(position) && column.numBeyond++ == 0) {
                column.firstBeyond = where() + ": " + column.joint.beyondText(position);
            }
        }
    }
    return true;
}

void Reader::tellOfPositionsBeyond()
{
    for (const Column& column : m_columns) {
        // One warning for each joint: a motion can be out of range for thousands of rows.
        if (column.numBeyond > 0) {
            const std::string more =
                column.numBeyond > 1 ? ", and " + std::to_string(column.numBeyond - 1) + " more" : "";
            m_warnings.push_back(column.firstBeyond + more);
        }
    }
}

bool Reader::read(KrMotion& motion)
{
    if (!readHeader()) {
        return false;
    }
    std::vector<KrMotion::Joint> joints;
    for (const Column& column : m_columns) {
        if (column.kind == Column::Position) {
            joints.push_back({column.joint.manipulator, column.joint.name});
        }
    }
    // Both bound the memory: a motion of few joints may be long, one of many may not.
    const std::size_t mostRows =
        std::min(Kr::Limits::kTrajectoryRows, Kr::Limits::kTrajectoryNumbers / (1 + joints.size()));
    // The caller's motion stays as it was until the end.
    KrMotion read(m_system, std::move(joints));
    bool isEnd = false;
    while (nextLine(isEnd) && !isEnd) {
        // Before the row is taken apart.
        if (read.size() == mostRows) {
            return fail(m_name + ": it has more than " + std::to_string(mostRows) + " rows");
        }
        if (!readRow(read.size() == 0)) {
            return false;
        }
        read.add(m_time, m_positions);
    }
    // Both ways out of the loop look alike; a failure has left its reason.
    if (!isEnd || !m_reason.empty()) {
        return false;
    }
    if (read.size() == 0) {
        return fail(m_name + " has a header but no row");
    }
    tellOfPositionsBeyond();
    // Behind all refusals.
    motion = std::move(read);
    return true;
}

bool readFrom(const KrStatedSystem& system, Source& source, const std::string& name, KrMotion& motion,
              std::vector<std::string>& warnings, std::string& reason)
{
    // Empty while nothing has failed, which read() looks at.
    reason.clear();
    return Reader(system, source, name, warnings, reason).read(motion);
}

} // namespace

bool KrTrajectoryFile::readFile(const KrStatedSystem& system, const std::string& path, KrMotion& motion,
                                std::vector<std::string>& warnings, std::string& reason)
{
    KrInputFile file(Kr::Limits::kTextBytes);
    if (!file.open(path)) {
        reason = path + ": " + file.reason();
        return false;
    }
    FileSource source(file);
    return readFrom(system, source, path, motion, warnings, reason);
}

bool KrTrajectoryFile::readDescriptor(const KrStatedSystem& system, int descriptor, const std::string& name,
                                      KrMotion& motion, std::vector<std::string>& warnings, std::string& reason)
{
    KrInputFile file(Kr::Limits::kTextBytes);
    // Read from where it stands; it stays the caller's.
    if (!file.openDescriptor(descriptor)) {
        reason = name + ": " + file.reason();
        return false;
    }
    FileSource source(file);
    return readFrom(system, source, name, motion, warnings, reason);
}

bool KrTrajectoryFile::readText(const KrStatedSystem& system, const std::string& text, const std::string& name,
                                KrMotion& motion, std::vector<std::string>& warnings, std::string& reason)
{
    TextSource source(text);
    return readFrom(system, source, name, motion, warnings, reason);
}
