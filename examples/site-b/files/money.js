export const pounds = (pence) => `£${(pence / 100).toFixed(2)}`;
