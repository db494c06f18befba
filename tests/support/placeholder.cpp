// The test support grows here.
