// The 39 exports of libQuorvane.so.13, without their prefix, for tables made once per export:
// QUORVANE_TRACE_EXPORTS(X) expands to X(Open) X(Close) ... The forwarding library defines every
// one of them with the header's declaration; a test compares its exports with the real library's.
#pragma once

// clang-format off
#define QUORVANE_TRACE_EXPORTS(X)                                                                 \
    X(Open) X(Close) X(OpenResource) X(Reset) X(Download) X(Run) X(Abort)                         \
    X(StartFifo) X(StopFifo) X(ConfigureFifo) X(ConfigureFifo2)                                   \
    X(AcquireFifoReadRegionScalar) X(AcquireFifoWriteRegionScalar)                                \
    X(ReadFifoScalar) X(WriteFifoScalar) X(ReadFifoComposite) X(WriteFifoComposite)               \
    X(GetResources) X(AddResources) X(GetResourceIndex) X(ReleaseResourceIndex)                   \
    X(GetResourceName) X(GetPeerToPeerFifoEndpoint)                                               \
    X(Read16) X(Read32) X(ReadSgl) X(ReadDbl) X(Write16) X(Write32) X(WriteSgl) X(WriteDbl)       \
    X(ReadArray32) X(WriteArray32)                                                                \
    X(ReserveIrqContext) X(UnreserveIrqContext) X(WaitOnIrqs) X(AcknowledgeIrqs)                  \
    X(ReservePxiTriggerLine) X(UnreservePxiTriggerLine)
// clang-format on
