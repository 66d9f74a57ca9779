// What a run may leave behind: GStreamer's objects, threads, descriptors.
#ifndef TESTS_PIPELINES_LIVE_OBJECTS_H
#define TESTS_PIPELINES_LIVE_OBJECTS_H

#include <map>
#include <string>

// The number of live GStreamer objects of each kind that belongs to pipelines: elements, pads,
// buses, tasks, messages, events, buffers.
std::map<std::string, int> liveObjects();

// Waits until exactly these are left: a thread that is done drops its task a moment later.
bool waitForObjects(const std::map<std::string, int>& expected);

// The number of this process's threads, without those that pools keep for later.
int threadCount();

// Waits until no more than `count` threads are left: a thread that is done takes a moment to go.
bool waitForThreads(int count);

// The number of this process's open descriptors.
int descriptorCount();

// Waits until no more than `count` descriptors are open: a bus closes its own behind its object.
bool waitForDescriptors(int count);

#endif
