// The counters that decide when to ask for a review: four integers "ratekey0" to "ratekey3" in
// the user-defaults dictionary "com.vorela.rateInfo", frozen once "com.vorela.rateComplete" is
// true. A batch start, each processed result and each failure move them; the batch run asks
// checkAndCommitRateInfo when it finishes.
#pragma once

namespace VXHelper {

// Counters 0 and 1 up by one (a batch started).
void incrementRateInfoStarted();
// Counters 2 and 3 up by one (a result processed).
void incrementRateInfoProcessed();
// Counters 1 and 3 back to 0 (a failure shown to the user).
void updateReteInfoWithError();
// True when counter 0 >= 10, 1 >= 3, 2 >= 20 and 3 >= 5; then counters 1 and 3 go back to 0,
// so the next prompt needs 3 fresh batches and 5 fresh results without a failure.
bool checkAndCommitRateInfo();

}  // namespace VXHelper
