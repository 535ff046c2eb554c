// Which alerts a sink gets.
#include <gtest/gtest.h>

#include "agent/alerts/own_alert.h"
#include "agent/sinks/route.h"

namespace {

using sinks::CheckRoute;
using sinks::Route;

alerts::Alert AlertOf(const std::string &source, const std::string &severity = "")
{
    alerts::Alert alert;
    alert.source = source;
    alert.host = "web1";
    alert.severity = severity;
    return alert;
}

TEST(RouteTest, WithoutConditionsItTakesAll)
{
    EXPECT_TRUE(Route().Takes(AlertOf("DISK")));
    EXPECT_TRUE(Route("").Takes(AlertOf("DISK", "debug")));
}

TEST(RouteTest, ASeverityTakesThoseAtOrAboveIt)
{
    const Route route("severity>=err");
    for (const char *grave : {"emerg", "alert", "crit", "err"})
        EXPECT_TRUE(route.Takes(AlertOf("DISK", grave))) << grave;
    for (const char *mild : {"warning", "notice", "info", "debug"})
        EXPECT_FALSE(route.Takes(AlertOf("DISK", mild))) << mild;
}

TEST(RouteTest, AnEventWithoutASeverityIsAWarning)
{
    EXPECT_TRUE(Route("severity>=warning").Takes(AlertOf("DISK")));
    EXPECT_FALSE(Route("severity>=err").Takes(AlertOf("DISK")));
}

TEST(RouteTest, PatternsAreOfSourceHostAndLabels)
{
    EXPECT_TRUE(Route("source=DI*").Takes(AlertOf("DISK")));
    EXPECT_FALSE(Route("source=DI*").Takes(AlertOf("disk"))) << "case counts";
    EXPECT_FALSE(Route("source=DI").Takes(AlertOf("DISK"))) << "the whole of it";
    EXPECT_TRUE(Route("host=web?").Takes(AlertOf("DISK")));
    alerts::Alert alert = AlertOf("DISK");
    alert.line_host = "db7";
    EXPECT_TRUE(Route("host=db*").Takes(alert)) << "the host that wrote the line";
    EXPECT_FALSE(Route("host=web*").Takes(alert));
    alert.labels = {{"team", "db"}};
    EXPECT_TRUE(Route("label.team=db").Takes(alert));
    EXPECT_FALSE(Route("label.team=").Takes(alert));
    EXPECT_TRUE(Route("label.site=").Takes(alert)) << "it has no such label";
}

TEST(RouteTest, OfOneNameOneMustHoldAndOfSeveralNamesEach)
{
    const Route route("source=DISK*,source=NET*,host=web*,severity>=notice");
    EXPECT_TRUE(route.Takes(AlertOf("DISK")));
    EXPECT_TRUE(route.Takes(AlertOf("NET1")));
    EXPECT_FALSE(route.Takes(AlertOf("FAN")));
    EXPECT_FALSE(route.Takes(AlertOf("DISK", "info")));
    alerts::Alert elsewhere = AlertOf("DISK");
    elsewhere.host = "db1";
    EXPECT_FALSE(route.Takes(elsewhere));
}

TEST(RouteTest, WhatASilenceHoldsBackIsForNoSink)
{
    alerts::Alert alert = AlertOf("DISK", "emerg");
    alert.silence = 1;
    EXPECT_FALSE(Route().Takes(alert));
}

// It would wait for its own cause. Where the alerts of many hosts are collected, their sinks have the same names.
TEST(RouteTest, ThatASinkFailsIsForAllOthersAndFromAnotherHostAlsoForTheOneOfThatName)
{
    alerts::Alert alert = AlertOf(alerts::kOwnSource);
    alert.event_id = static_cast<uint32_t>(alerts::OwnEvent::kSinkFails);
    alert.labels = {{"about", "mail"}};
    EXPECT_FALSE(Route("", "mail").Takes(alert));
    EXPECT_TRUE(Route("", "page").Takes(alert));
    alert.is_collected = true;
    EXPECT_TRUE(Route("", "mail").Takes(alert));
}

TEST(RouteTest, AMistakeIsNamedWithItsPlaceAndWhatIsAllowed)
{
    const std::string allowed = CheckRoute("source=DISK*,sevrity>=err");
    EXPECT_NE(std::string::npos, allowed.find("character 14 begins \"sevrity>=err\"")) << allowed;
    EXPECT_NE(std::string::npos, allowed.find("severity>=emerg|alert|crit|err")) << allowed;
    for (const char *bad : {"", ",", "source=DISK,", "source", "source=", "severity=err",
                            "severity>=", "severity>=error", "label.=x", "event=1", " host=a"})
        EXPECT_NE("", CheckRoute(bad)) << bad;
    for (const char *good : {"source=*", "severity>=debug", "label.a=", "host=[ab]*,host=c"})
        EXPECT_EQ("", CheckRoute(good)) << good;
}

} // namespace
