#include "driver/usage.h"

#include <string_view>

#include "base/messages.h"
#include "base/text_line.h"
#include "driver/run_state.h"

namespace voxlith {

namespace {

constexpr std::string_view stars = "***************************************************";

void framedRow(std::string_view words) {
    screenLine(TextLine().spaces(10).text("*").text(words).padTo(60).text("*"));
}

}  // namespace

void showBanner() {
    screenLine("");
    screenLine(TextLine().spaces(10).text(stars));
    framedRow("");
    framedRow(TextLine("             VoxLith - Version ").text(programVersion));
    framedRow("");
    framedRow("");
    framedRow("     a program to perform mag/grav inversions");
    framedRow("");
    framedRow("");
    framedRow("                  August,   2013");
    framedRow("");
    screenLine(TextLine().spaces(10).text(stars));
    screenLine("");
}

void showUsage() {
    constexpr std::string_view lines[] = {
        "Usage: voxlith voxlith.inp {Misfit=(pct,floor) Tradeoff=val Offset=shift ObsClip=(min,max)}",
        "",
        "Sample input file: (! must precede comments)",
        "",
        "0 {1  1  1}     ! iRestart (0=new, 1=continue), #MTX, #data comp, #model types",
        "2  0  0         ! iMode (2=user defined trade-off), iBackground, BackVal",
        "1.0 0.02 1      ! trade-off, tolc(NA), positivity flag",
        "obs.mag         ! observed data file",
        "voxlith.mtx     ! forward calculation matrix file",
        "0.001           ! initial model    | null",
        "0.0             ! reference model  | null",
        "null            ! model bounds     | lower,upper | null",
        "0.0001 1. 1. 1. ! alphaS, alphaE, alphaN, alphaZ | null",
        "w.dat           ! 3D weighting file | null",
        "0               ! data offset/file for refinement inversion",
        "300 {0} {0}     ! max iterations, output iteration step (0=none), InversionMethod",
        "",
        "iBackground: 0=do not calculate, 1=calculate, 2=apply value",
        "positivity flag: -1=all negative,0=unconstrained, 1=all positive",
        "",
        "InversionMethod: 0=L-BFGS-B, 1=PLIS (rank 1), 2=PLIS (rank 2)",
        "",
    };
    for (const std::string_view line : lines) {
        screenLine(line);
    }
}

}  // namespace voxlith
