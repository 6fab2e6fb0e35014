#pragma once

#include "prefs/cvfilterprofileinfo.h"

#include <memory>

// A saved search, stored in the database the persistence layer uses now.
inline std::shared_ptr<CVFilterProfileInfo> saveProfile(const QString& name,
                                                        const QString& expression)
{
    auto profile = CVFilterProfileInfo::create();
    profile->setProfileName(name);
    profile->setSearchExpression(expression);
    profile->save();
    return profile;
}
