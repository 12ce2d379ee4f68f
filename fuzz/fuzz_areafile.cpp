// libFuzzer target: the area file reader. Whatever the text, reading must not
// crash; a file it accepts must be within the window's ranges, written back
// and read again to the same areas, and turn into wire decimetres.

#include "cli/areafile.h"
#include "cli/wirearea.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), int(size));
    AreaFile file;
    QString error;
    if (!AreaFile::parse(text, "fuzz.json", &file, &error)) {
        check(error.startsWith("fuzz.json"));
        // A syntax error's place lies inside the text (or just after it).
        int line = 0;
        int column = 0;
        AreaFile::lineAndColumn(text, int(size) / 2, &line, &column);
        check(line >= 1 && column >= 1);
        return 0;
    }
    check(file.areas.size() <= 3);
    int previous = 0;
    for (const AreaEntry &a : file.areas) {
        check(a.number > previous && a.number <= 3);
        previous = a.number;
        if (a.kind == AreaEntry::Unset)
            continue;
        check(AreaFile::xInRange(a.from.x()) && AreaFile::xInRange(a.to.x()));
        check(AreaFile::yInRange(a.from.y()) && AreaFile::yInRange(a.to.y()));
        const WireArea wire = WireArea::expected(a);
        check(wire.defined() && wire.left <= wire.right && wire.top >= wire.bottom);
        check(wire.left >= -80 && wire.right <= 80 && wire.bottom >= 0 && wire.top <= 80);
        // The entry a backup writes for it restores the same decimetres.
        bool exact = false;
        check(WireArea::expected(WireArea::toEntry(a.number, wire, &exact)) == wire && exact);
    }

    AreaFile again;
    check(AreaFile::parse(file.toJson(), "again.json", &again, &error));
    check(again.hasDisplay == file.hasDisplay && again.display == file.display);
    check(again.areas.size() == file.areas.size());
    for (int i = 0; i < file.areas.size(); ++i) {
        check(again.areas.at(i).number == file.areas.at(i).number);
        check(again.areas.at(i).kind == file.areas.at(i).kind);
        check(WireArea::expected(again.areas.at(i)) == WireArea::expected(file.areas.at(i)));
    }
    return 0;
}
