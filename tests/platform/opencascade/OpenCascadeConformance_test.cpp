#include "platform/opencascade/OpenCascadeDatabase.h"
#include "tests/platform/conformance/SeamConformance.h"
#include "tests/platform/opencascade/Rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvopencascade::Database;
using kvtest::Rack;

TEST(OpenCascadeConformance, EveryPromiseHolds) {
    Rack rack;
    Database database(rack.document);
    Database secondView(rack.document);
    kvconformance::Subject subject;
    for (const TDF_Label& label : {rack.rack, rack.shelf, rack.box, rack.left, rack.right, rack.front})
        subject.entities.push_back(database.idOf(label));
    subject.erased = {database.idOf(rack.lamp), database.idOf(rack.bulb)};
    for (const GxDbObjectId& id : subject.erased)
        Database::erase(id);
    subject.others = {database.idOf(rack.colour), database.idOf(rack.document->Main())};
    subject.invalid = {database.idOf(rack.back)};
    rack.back.ForgetAllAttributes();
    subject.twins = {{database.idOf(rack.left), secondView.idOf(rack.left)},
                     {secondView.idOf(rack.colour), database.idOf(rack.colour)}};
    subject.openCount = Database::openCount;

    const kvconformance::Report report = kvconformance::check(subject);
    EXPECT_THAT(report.broken, testing::IsEmpty());
    EXPECT_THAT(report.unchecked, testing::IsEmpty());
    EXPECT_EQ(database.highlights(), 0u);
}

} // namespace
