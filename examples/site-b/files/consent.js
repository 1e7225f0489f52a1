// Holds the page up, as such scripts do: nothing may be counted before the visitor has said yes.
document.documentElement.dataset.consent = /consent=no/.test(document.cookie) ? 'no' : 'yes';
