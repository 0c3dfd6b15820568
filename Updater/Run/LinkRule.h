#pragma once

/// A run with an administrator's rights follows no links below its user's folders, where other programs of
/// that user, which lack such rights, could make any. An ordinary run follows its user's own: he may have
/// moved a folder to another disk. Called before anything is made or written there. Throws CException when
/// the user has no application-data folder.
void FollowNoLinksWhenElevated();
